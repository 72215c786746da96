// The cut matrix in virtual time: one fault at each byte of a session, over each transport and with
// each chip and option of the bootloader.
#include <gtest/gtest.h>

#include "tests/cuts/cut_matrix.h"
#include "tests/cuts/document_table.h"
#include "tests/cuts/long_run.h"
#include "tests/cuts/quiet_console.h"
#include "tests/cuts/virtual_mcuboot_session.h"
#include "tests/cuts/virtual_uart_session.h"

namespace {

using namespace cuts;

// A short run takes one session of so many: a prime, so that it meets every fault and byte.
constexpr size_t kSample = 53;

std::byte OneBit(size_t position)
{
    return static_cast<std::byte>(1 << (position % 8));
}

void ExpectTables(CutMatrix const& matrix, std::string const& name)
{
    EXPECT_EQ(matrix.Problems(), "");
    auto const& counts = matrix.Counts();
    EXPECT_GT(counts.Sessions(), 1000U);
    if (IsLongRun()) {
        EXPECT_TRUE(IsInDocument(counts.MakeTable({"Fault", "Direction"}), name));
        EXPECT_TRUE(IsInDocument(counts.MakeExplanations(), name + "-explained"));
    }
}

std::vector<MatrixFault> ListUartFaults(simulator::AckPair const& pair)
{
    using enum WireFaultKind;
    return {
        {"cut", kCut},
        {"swallowed", kSwallow},
        {"one bit flipped", kFlip, OneBit},
        {"acknowledged for refused", kFlip, [pair](size_t) { return pair.ack ^ pair.nack; }},
        // Which can make a page list the command to erase everything.
        {"a stray 0xff", kExtraBefore, [](size_t) { return std::byte{0xFF}; }},
        {"an acknowledgement too many", kExtraAfter, [pair](size_t) { return pair.ack; }},
        {"stalled just below the limit", kStallBelow},
        {"stalled just above the limit", kStallAbove},
    };
}

TEST(VirtualCutMatrix, EveryByteOfAUartSessionCanFailAndTheUnitIsUpdatedNextTime)
{
    CutMatrix matrix(IsLongRun() ? 1 : kSample);
    {
        QuietConsole const quiet;
        for (auto const& setup : ListUartSetups()) {
            UartBench bench(setup);
            matrix.Run(setup.name, ListUartFaults(setup.unit.ack_pair), bench.CountBytes(),
                       [&](WireFault const& fault) { return bench.RunWithOne(fault); });
        }
    }
    ExpectTables(matrix, "virtual-uart");
}

std::vector<MatrixFault> ListMcubootFaults()
{
    using enum WireFaultKind;
    auto const newline = [](size_t) { return std::byte{'\n'}; };
    return {
        {"cut", kCut},
        {"swallowed", kSwallow},
        {"one bit flipped", kFlip, OneBit},
        {"a newline instead", kReplace, newline},
        {"a letter too many", kExtraBefore, [](size_t) { return std::byte{'A'}; }},
        {"a newline too many", kExtraAfter, newline},
        {"stalled just below the limit", kStallBelow},
        {"stalled just above the limit", kStallAbove},
    };
}

TEST(VirtualCutMatrix, EveryByteOfAnMcubootSessionCanFailAndTheUnitIsUpdatedNextTime)
{
    CutMatrix matrix(IsLongRun() ? 1 : kSample);
    for (auto const& setup : ListMcubootSetups()) {
        McubootBench bench(setup);
        matrix.Run(setup.name, ListMcubootFaults(), bench.CountBytes(),
                   [&](WireFault const& fault) { return bench.RunWithOne(fault); });
    }
    ExpectTables(matrix, "virtual-mcuboot");
}

}  // namespace
