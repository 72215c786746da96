// Random sessions in virtual time: several faults in each, of the line and of the unit. Everything
// follows from a session's seed.
#include <gtest/gtest.h>

#include <QtGlobal>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/cuts/long_run.h"
#include "tests/cuts/quiet_console.h"
#include "tests/cuts/random_faults.h"
#include "tests/cuts/virtual_mcuboot_session.h"
#include "tests/cuts/virtual_uart_session.h"

namespace {

using namespace cuts;

struct RandomSession {
    std::string description;
    SessionVerdict verdict;
};

class UartSessions {
public:
    UartSessions()
    {
        for (auto const& setup : ListUartSetups()) {
            benches_.push_back(std::make_unique<UartBench>(setup));
        }
    }
    RandomSession Run(uint64_t seed)
    {
        Random random(seed);
        auto const i = random.Below(benches_.size());
        auto& bench = *benches_[i];
        std::array const telling{std::byte{0x79}, std::byte{0x1F}, std::byte{0x75}, std::byte{0x3F},
                                 std::byte{0x7F}, std::byte{0},    std::byte{0xFF}, std::byte{0x31}};
        auto const faults = MakeRandomFaults(random, bench.CountBytes(),
                                             simulator::kStm32FaultKinds, telling);
        return {bench.Name() + ": " + ToText(faults), bench.RunWithMany(faults)};
    }

private:
    QuietConsole quiet_;
    std::vector<std::unique_ptr<UartBench>> benches_;
};

class McubootSessions {
public:
    McubootSessions()
    {
        for (auto const& setup : ListMcubootSetups()) {
            benches_.push_back(std::make_unique<McubootBench>(setup));
        }
    }
    RandomSession Run(uint64_t seed)
    {
        Random random(seed);
        auto& bench = *benches_[random.Below(benches_.size())];
        std::array const telling{std::byte{'\n'}, std::byte{6}, std::byte{9}, std::byte{4},
                                 std::byte{0x14}, std::byte{'A'}, std::byte{'='}};
        auto const faults = MakeRandomFaults(random, bench.CountBytes(),
                                             simulator::kMcubootFaultKinds, telling);
        return {bench.Name() + ": " + ToText(faults), bench.RunWithMany(faults)};
    }

private:
    std::vector<std::unique_ptr<McubootBench>> benches_;
};

TEST(VirtualSessions, Probe)
{
    std::map<std::string, int> n;
    std::string out;
    {
        UartSessions s;
        for (int i = 0; i < 5000; ++i) {
            auto r = s.Run(i);
            auto k = std::string(kSessionEnds.at(int(r.verdict.end))) + " / " + r.verdict.problem.substr(0, 60);
            if (!r.verdict.problem.empty() && n[k] < 6) out += std::to_string(i) + ": " + k + " <" + r.verdict.report + "> " + r.description + "\n";
            ++n[k];
        }
    }
    for (auto& [k, c] : n) printf("%6d %s\n", c, k.c_str());
    printf("%s", out.c_str());
    n.clear(); out.clear();
    {
        McubootSessions s;
        for (int i = 0; i < 5000; ++i) {
            auto r = s.Run(i);
            auto k = std::string(kSessionEnds.at(int(r.verdict.end))) + " / " + r.verdict.problem.substr(0, 60);
            if (!r.verdict.problem.empty() && n[k] < 6) out += std::to_string(i) + ": " + k + " <" + r.verdict.report + "> " + r.description + "\n";
            ++n[k];
        }
    }
    for (auto& [k, c] : n) printf("%6d %s\n", c, k.c_str());
    printf("%s", out.c_str());
}

}  // namespace
