// A whole UART session in virtual time: the engine updates a simulated unit over a wire with
// faults, and then a second time, after a reset, over one without. Judges how both ended.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "runtime/dispatcher.h"
#include "simulator/bootloaders/stm32_bootloader.h"
#include "tests/cuts/random_faults.h"
#include "tests/cuts/session_end.h"
#include "tests/cuts/uart_script.h"
#include "tests/cuts/virtual_uart.h"
#include "tests/cuts/virtual_wire.h"

namespace cuts {

// What is known after an attempt to update.
struct UartAttempt {
    bool is_connected = false;
    bool is_verified = false;
    bool is_updated = false;
    std::vector<std::string> texts;  // without the place in the source
    Time time{0};
    Time longest_wait{0};
    std::array<size_t, 2> bytes{};  // by direction
    uint64_t trace_hash = 0;
    std::vector<std::byte> forged;  // see VirtualWire
    size_t most_faults_together = 0;
    std::vector<std::byte> flash;
    bool is_running = false;  // the new firmware, with the marker in its place
};

// Runs sessions with one simulated unit, each from the same beginning.
class UartBench {
public:
    explicit UartBench(UartSetup setup);

    std::string const& Name() const { return setup_.name; }

    // Of a session without faults, by direction.
    std::array<size_t, 2> CountBytes() const { return sound_.bytes; }

    // Exactly one fault, after which only what a table of exceptions names may go undetected.
    SessionVerdict RunWithOne(WireFault const& fault);

    // Any faults. Only what holds whatever the line does is a problem.
    SessionVerdict RunWithMany(SessionFaults const& faults);

private:
    void Restore();
    UartAttempt Try(stm32_updater::Stm32UartUpdater& engine, VirtualUart& uart,
                    SessionFaults const& faults);
    UartAttempt Run(SessionFaults const& faults, SessionVerdict& verdict);
    SessionEnd Classify(UartAttempt const& attempt) const;
    bool HasLearnedWrongPair(VirtualUart const& uart) const;

    // Why a damaged byte did not make the session fail; empty when there is no good reason.
    std::string ExplainOne(UartAttempt const& attempt, WireFault const& fault) const;
    std::string ExplainMany(UartAttempt const& attempt, SessionFaults const& faults) const;

    // Each returns what is wrong, and nothing when all is right.
    std::string CheckSecondAttempt(stm32_updater::Stm32UartUpdater& engine, VirtualUart& uart);
    std::string CheckUpdated(UartAttempt const& attempt, std::vector<std::byte> const& flash) const;
    std::string CheckTexts(UartAttempt const& attempt, size_t first_wait) const;
    std::string CheckPrediction(UartAttempt const& attempt, WireFault const& fault) const;
    std::string CheckFailsAt(UartAttempt const& attempt, size_t wait, size_t effects) const;

    UartSetup setup_;
    UartScript script_;
    simulator::Stm32Bootloader unit_;
    dispatcher::Dispatcher dispatcher_{{}, 1};
    std::mutex mutex_;
    std::vector<std::byte> new_flash_;
    UartAttempt sound_;  // without faults
};

}  // namespace cuts
