// The cut matrix in virtual time: one fault at each byte of a session, over each transport and with
// each chip and option of the bootloader.
#include <gtest/gtest.h>

#include "tests/cuts/end_counts.h"
#include "tests/cuts/long_run.h"
#include "tests/cuts/quiet_console.h"
#include "tests/cuts/virtual_bench.h"

namespace {

using namespace cuts;

constexpr size_t kMostProblems = 20;

// One session in so many is run. In a short run it is a prime number, so that every fault and every
// byte get their turn.
size_t GetStep()
{
    return IsLongRun() ? 1 : 53;
}

// Calls `play` for each fault at each byte, with the names of both as a table has them.
template <typename Play>
void ForEachFault(Bench const& bench, Play const& play)
{
    for (auto const& fault : bench.ListFaults()) {
        for (auto const direction : {Direction::kToUnit, Direction::kToHost}) {
            bool const is_to_unit = direction == Direction::kToUnit;
            auto const end = bench.CountBytes().at(is_to_unit ? 0 : 1);
            for (size_t position = 0; position < end; ++position) {
                play({fault.name, is_to_unit ? "to the unit" : "to the program"},
                     WireFault{fault.kind, direction, position, fault.value(position)});
            }
        }
    }
}

void PlayMatrix(VirtualTransport const& transport)
{
    EndCounts counts({"Fault", "Direction"});
    size_t candidates = 0;
    size_t problem_count = 0;
    std::string problems;
    {
        QuietConsole const quiet;
        for (auto const& bench : transport.make_benches()) {
            ForEachFault(
                *bench, [&](std::vector<std::string> const& title, WireFault const& fault) {
                    if (candidates++ % GetStep() != 0) {
                        return;
                    }
                    auto const verdict = bench->RunWithOne(fault);
                    counts.Add(title, verdict);
                    if (!verdict.problem.empty() && ++problem_count <= kMostProblems) {
                        problems +=
                            bench->Name() + ", " + ToText(fault) + ": " + verdict.ToText() + "\n";
                    }
                });
        }
    }
    EXPECT_EQ(problems, "");
    EXPECT_GT(counts.Sessions(), 1000U);
    if (IsLongRun()) {
        EXPECT_TRUE(counts.AreInDocument(transport.table));
    }
}

TEST(VirtualCutMatrix, EveryByteOfAUartSessionCanFailAndTheUnitIsUpdatedNextTime)
{
    PlayMatrix(GetVirtualUart());
}

TEST(VirtualCutMatrix, EveryByteOfAnMcubootSessionCanFailAndTheUnitIsUpdatedNextTime)
{
    PlayMatrix(GetVirtualMcuboot());
}

}  // namespace
