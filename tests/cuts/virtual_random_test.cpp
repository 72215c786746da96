// Random sessions in virtual time: several faults in each, of the line and of the unit. Everything
// follows from a session's seed. A failure prints the seed; FW_SEED=N runs the session of that seed
// alone and prints what happens in it.
#include <gtest/gtest.h>

#include <QtGlobal>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/cuts/end_counts.h"
#include "tests/cuts/long_run.h"
#include "tests/cuts/quiet_console.h"
#include "tests/cuts/random_faults.h"

namespace {

using namespace cuts;

constexpr uint64_t kShortRun = 2'000;
constexpr uint64_t kLongRun = 50'000;

// Enough of the sessions that did not end as they must.
constexpr size_t kMostText = 10'000;

struct RandomSession {
    std::string description;
    SessionVerdict verdict;
};

// One transport's sessions. One object at a time: it keeps the console quiet.
class RandomSessions {
public:
    explicit RandomSessions(VirtualTransport const& transport)
        : transport_(transport), benches_(transport.make_benches())
    {}

    RandomSession Run(uint64_t seed)
    {
        Random random(seed);
        auto& bench = *benches_[random.Below(benches_.size())];
        auto const faults = MakeRandomFaults(random, bench.CountBytes(), transport_);
        return {bench.Name() + ": " + ToText(faults), bench.RunWithMany(faults)};
    }

private:
    QuietConsole quiet_;
    VirtualTransport const& transport_;
    std::vector<std::unique_ptr<Bench>> benches_;
};

std::optional<uint64_t> GetOneSeed()
{
    bool is_number = false;
    auto const seed = qEnvironmentVariable("FW_SEED").toULongLong(&is_number);
    return is_number ? std::optional<uint64_t>(seed) : std::nullopt;
}

void RunSessions(VirtualTransport const& transport, EndCounts& counts)
{
    std::string all;
    std::string problems;
    auto const one = GetOneSeed();
    auto const end = one ? *one + 1 : IsLongRun() ? kLongRun : kShortRun;
    {
        RandomSessions sessions(transport);
        for (auto seed = one.value_or(0); seed < end && problems.size() < kMostText; ++seed) {
            auto const [description, verdict] = sessions.Run(seed);
            counts.Add({transport.name}, verdict);
            auto const text =
                "FW_SEED=" + std::to_string(seed) + ": " + description + verdict.ToText() + "\n";
            all += one ? text : "";
            problems += verdict.problem.empty() ? "" : text;
        }
    }
    std::cout << all;
    EXPECT_EQ(problems, "") << transport.name;
}

TEST(VirtualSessions, WhateverTheLineAndTheUnitDoTheUnitIsUpdatedNextTime)
{
    EndCounts counts({"Transport"});
    RunSessions(GetVirtualUart(), counts);
    RunSessions(GetVirtualMcuboot(), counts);
    if (IsLongRun() && !GetOneSeed()) {
        EXPECT_TRUE(counts.AreInDocument("virtual-random"));
    }
}

TEST(VirtualSessions, OneSeedIsOneRunWhateverRanBefore)
{
    constexpr uint64_t kSeeds = 50;
    // Everything that happened: the faults, how the session ended, and each byte and its time.
    auto const describe = [](RandomSessions& sessions, uint64_t seed) {
        auto const [description, verdict] = sessions.Run(seed);
        return description + verdict.ToText() + std::to_string(verdict.trace_hash);
    };
    for (auto const* transport : {&GetVirtualUart(), &GetVirtualMcuboot()}) {
        std::vector<std::string> forth;
        std::vector<std::string> back(kSeeds);
        {
            RandomSessions sessions(*transport);
            for (uint64_t seed = 0; seed < kSeeds; ++seed) {
                forth.push_back(describe(sessions, seed));
            }
        }
        {
            RandomSessions sessions(*transport);
            for (auto seed = kSeeds; seed-- > 0;) {
                back[seed] = describe(sessions, seed);
            }
        }
        EXPECT_EQ(forth, back) << transport->name;
        EXPECT_EQ(std::set(forth.begin(), forth.end()).size(), kSeeds) << "all differ";
    }
}

}  // namespace
