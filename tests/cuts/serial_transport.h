// The two serial transports, for the tests that cut their lines: a unit, the backend, the image and
// the steps of a session.
#pragma once

#include <QString>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "config/startup_config.h"
#include "simulator/bootloaders/serial_bootloader.h"
#include "simulator/journal.h"
#include "updater/firmware_updater_base.h"

namespace cuts {

inline constexpr uint8_t kUnitModel = 12;

// What the window shows of an attempt in the end.
enum class AttemptResult { kNoUnit, kRefused, kFailed, kDone };

// One step of a session: a command, or several of one kind.
struct SerialStep {
    std::string command;  // in the unit's journal
    std::string name;
    AttemptResult result;             // of a session that ends here
    std::chrono::milliseconds limit;  // the longest wait for an answer
    std::string engine_name = {};     // of the command, in the engine's texts
    bool (*is_meant)(simulator::JournalEntry const& entry) = [](auto const&) { return true; };
};

struct SerialTransport {
    targetInterfaceType type;
    QByteArray image;
    QByteArray expected_flash;
    std::unique_ptr<simulator::SerialBootloader> (*make_unit)();
    std::unique_ptr<FirmwareUpdaterBase> (*make_backend)(QString const& image_path);
    std::vector<SerialStep> steps;  // in the order of a session

    // The first step that is meant by a command. Throws std::runtime_error if there is none.
    SerialStep const& FindStep(simulator::JournalEntry const& entry) const;
};

SerialTransport const& GetUartTransport();
SerialTransport const& GetMcubootTransport();

// Whether the unit's flash begins as the update leaves it.
bool HoldsImage(SerialTransport const& transport, simulator::SerialBootloader const& unit);
bool RunsFirmware(simulator::SerialBootloader const& unit);

}  // namespace cuts
