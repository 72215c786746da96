// The two serial transports, for the tests that cut their lines: a unit, the backend, the image and
// the steps of a session.
#pragma once

#include <QString>
#include <QTemporaryDir>
#include <chrono>
#include <functional>
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
    std::string name;
    AttemptResult result;             // of a session that ends here
    std::chrono::milliseconds limit;  // the longest wait for an answer
    std::string engine_name;          // of the command, in the engine's texts
};

struct SerialTransport {
    targetInterfaceType type;
    QByteArray image;
    QByteArray expected_flash;
    std::unique_ptr<simulator::SerialBootloader> (*make_unit)();
    std::unique_ptr<FirmwareUpdaterBase> (*make_backend)(QString const& image_path);
    // The step that a command belongs to, by the unit's journal.
    SerialStep (*get_step)(simulator::JournalEntry const& entry);
};

SerialTransport const& GetUartTransport();
SerialTransport const& GetMcubootTransport();

// Whether the unit's flash begins as the update leaves it.
bool HoldsImage(SerialTransport const& transport, simulator::SerialBootloader const& unit);
bool RunsFirmware(simulator::SerialBootloader const& unit);

}  // namespace cuts
