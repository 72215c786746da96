#include <gtest/gtest.h>

#include "tests/cuts/document_table.h"
#include "tests/cuts/long_run.h"
#include "tests/cuts/quiet_console.h"
#include "tests/cuts/virtual_uart_session.h"

namespace {

using namespace cuts;

TEST(VirtualUart, Probe)
{
    std::map<std::string, int> problems;
    std::map<std::string, std::string> examples;
    size_t sessions = 0;
    {
        QuietConsole const quiet;
        for (auto const& setup : ListUartSetups()) {
            UartBench bench(setup);
            auto const ack = setup.unit.ack_pair;
            for (auto direction : {Direction::kToUnit, Direction::kToHost}) {
                for (size_t p = 0; p < bench.Script().CountBytes(direction); ++p) {
                    for (auto const& f : {
                             WireFault{WireFaultKind::kCut, direction, p},
                             WireFault{WireFaultKind::kSwallow, direction, p},
                             WireFault{WireFaultKind::kFlip, direction, p, std::byte(1 << (p % 8))},
                             WireFault{WireFaultKind::kFlip, direction, p, ack.ack ^ ack.nack},
                             WireFault{WireFaultKind::kExtraBefore, direction, p, std::byte{0}},
                             WireFault{WireFaultKind::kExtraAfter, direction, p, ack.ack},
                             WireFault{WireFaultKind::kStallBelow, direction, p},
                             WireFault{WireFaultKind::kStallAbove, direction, p},
                         }) {
                        auto const v = bench.RunWithOne(f);
                        ++sessions;
                        auto key = v.problem;
                        if (!key.empty()) {
                            key = ToText(f).substr(0, 16) + " wait " +
                                  std::string(
                                      bench.Script().Waits()[bench.Script().Find(direction, p)].command) +
                                  ": " + v.problem;
                            std::string t;
                            for (auto& x : v.attempt.texts) t += x + "; ";
                            examples[key] = setup.name + " " + ToText(f) + " end " +
                                            std::to_string(int(v.end)) + " texts " + t;
                        }
                        ++problems[key];
                    }
                }
            }
        }
    }
    printf("%zu sessions\n", sessions);
    for (auto& [k, n] : problems) printf("%6d %s   e.g. %s\n", n, k.c_str(), examples[k].c_str());
}

}  // namespace
