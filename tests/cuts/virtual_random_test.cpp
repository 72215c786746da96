// Random sessions in virtual time: several faults in each, of the line and of the unit. Everything
// follows from a session's seed. A failure prints the seed; FW_SEED=N runs the session of that seed
// alone and prints what happens in it.
#include <gtest/gtest.h>

#include <QtGlobal>
#include <array>
#include <iostream>
#include <memory>
#include <numeric>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/cuts/cut_matrix.h"
#include "tests/cuts/long_run.h"
#include "tests/cuts/quiet_console.h"
#include "tests/cuts/random_faults.h"
#include "tests/cuts/virtual_mcuboot_session.h"
#include "tests/cuts/virtual_uart_session.h"

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

// One bench for each setup of a transport.
template <typename Bench, typename Setup>
class RandomSessions {
public:
    RandomSessions(std::vector<Setup> const& setups, std::span<simulator::FaultKind const> kinds,
                   std::vector<std::byte> telling)
        : kinds_(kinds), telling_(std::move(telling))
    {
        for (auto const& setup : setups) {
            benches_.push_back(std::make_unique<Bench>(setup));
        }
    }

    RandomSession Run(uint64_t seed)
    {
        Random random(seed);
        auto& bench = *benches_[random.Below(benches_.size())];
        auto const faults = MakeRandomFaults(random, bench.CountBytes(), kinds_, telling_);
        return {bench.Name() + ": " + ToText(faults), bench.RunWithMany(faults)};
    }

private:
    QuietConsole quiet_;
    std::span<simulator::FaultKind const> kinds_;
    std::vector<std::byte> telling_;
    std::vector<std::unique_ptr<Bench>> benches_;
};

auto MakeUartSessions()
{
    // Both pairs of answers, the first byte, and what a list of commands or pages may contain.
    constexpr std::array<uint8_t, 9> kTelling{0x79, 0x1F, 0x75, 0x3F, 0x7F, 0x00, 0xFF, 0x31, 0x44};
    auto const bytes = std::as_bytes(std::span(kTelling));
    return std::make_unique<RandomSessions<UartBench, UartSetup>>(
        ListUartSetups(), simulator::kStm32FaultKinds, std::vector(bytes.begin(), bytes.end()));
}

auto MakeMcubootSessions()
{
    // The markers and ends of lines, and base64.
    constexpr std::string_view kTelling = "\x06\x09\x04\x14\n=A";
    auto const bytes = std::as_bytes(std::span(kTelling));
    return std::make_unique<RandomSessions<McubootBench, McubootSetup>>(
        ListMcubootSetups(), simulator::kMcubootFaultKinds,
        std::vector(bytes.begin(), bytes.end()));
}

std::optional<uint64_t> GetOneSeed()
{
    bool is_number = false;
    auto const seed = qEnvironmentVariable("FW_SEED").toULongLong(&is_number);
    return is_number ? std::optional<uint64_t>(seed) : std::nullopt;
}

template <typename Sessions>
void RunSessions(std::unique_ptr<Sessions> sessions, char const* transport, EndCounts& counts)
{
    std::string sessions_text;
    std::string problems;
    auto const one = GetOneSeed();
    auto const end = one ? *one + 1 : IsLongRun() ? kLongRun : kShortRun;
    for (auto seed = one.value_or(0); seed < end && problems.size() < kMostText; ++seed) {
        auto const [description, verdict] = sessions->Run(seed);
        counts.Add({transport}, verdict);
        auto const text =
            "FW_SEED=" + std::to_string(seed) + ": " + description + ToText(verdict) + "\n";
        sessions_text += one ? text : "";
        problems += verdict.problem.empty() ? "" : text;
    }
    sessions.reset();  // and with it the quiet
    std::cout << sessions_text;
    EXPECT_EQ(problems, "") << transport;
}

TEST(VirtualSessions, WhateverTheLineAndTheUnitDoTheUnitIsUpdatedNextTime)
{
    EndCounts counts;
    RunSessions(MakeUartSessions(), "UART", counts);
    RunSessions(MakeMcubootSessions(), "MCUboot", counts);
    if (IsLongRun() && !GetOneSeed()) {
        EXPECT_TRUE(IsInDocument(counts.MakeTable({"Transport"}), "virtual-random"));
        EXPECT_TRUE(IsInDocument(counts.MakeExplanations(), "virtual-random-explained"));
    }
}

// Everything that happened: the faults, how the session ended, and each byte and its time.
template <typename Sessions>
std::vector<std::string> Describe(std::unique_ptr<Sessions> sessions,
                                  std::vector<uint64_t> const& seeds)
{
    std::vector<std::string> descriptions;
    for (auto const seed : seeds) {
        auto const [description, verdict] = sessions->Run(seed);
        descriptions.push_back(description + ToText(verdict) + std::to_string(verdict.trace_hash));
    }
    return descriptions;
}

TEST(VirtualSessions, OneSeedIsOneRunWhateverRanBefore)
{
    std::vector<uint64_t> seeds(50);
    std::iota(seeds.begin(), seeds.end(), 0);
    auto const backwards = std::vector(seeds.rbegin(), seeds.rend());
    auto const expect_same = [&](auto make_sessions) {
        auto const forth = Describe(make_sessions(), seeds);
        auto back = Describe(make_sessions(), backwards);
        std::ranges::reverse(back);
        EXPECT_EQ(forth, back);
        EXPECT_EQ(std::set(forth.begin(), forth.end()).size(), seeds.size()) << "all differ";
    };
    expect_same(MakeUartSessions);
    expect_same(MakeMcubootSessions);
}

}  // namespace
