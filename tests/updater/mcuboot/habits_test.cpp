// A whole update by the backend on a real port, for each habit of a unit that a vendor may build:
// what it prints beside its answers, and how it splits and times them.
#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QTemporaryDir>
#include <ostream>
#include <string>

#include "simulator/simulated_unit.h"
#include "tests/support/collected_log.h"
#include "tests/support/files.h"
#include "tests/support/pattern_image.h"
#include "updater/mcuboot_serial_updater.h"

namespace {

using namespace std::chrono_literals;
using simulator::McubootRecoveryOptions;

constexpr qsizetype kHabitImageSize = 5000;

struct Habit {
    char const* name;
    void (*apply)(McubootRecoveryOptions& options);
    char const* end;  // of the update: "done", "failed", or "not connected"

    friend void PrintTo(Habit const& habit, std::ostream* stream) { *stream << habit.name; }
};

// Far more than the 3 ms within which the next line must follow.
constexpr auto kLongPause = 50ms;

// Of a new unit, which may begin with a banner that makes the first answers unusable.
bool ConnectsInTime(McubootSerialUpdater& updater, QString const& port, bool talks)
{
    QDeadlineTimer const end(talks ? 10s : 0s);
    bool connected = updater.connect(port);
    while (!connected && !end.hasExpired()) {
        connected = updater.connect(port);
    }
    return connected;
}

std::string Update(McubootRecoveryOptions const& recovery)
{
    CollectedLog const log;  // keeps it off the console
    static auto const testbed = std::make_shared<simulator::UsbTestbed>();
    simulator::SimulatedUnitOptions options;
    options.bootloader = recovery;
    simulator::SimulatedUnit unit(testbed, options);
    unit.Plug();
    QTemporaryDir const folder;
    auto const image = PatternImage<QByteArray>(kHabitImageSize);
    auto const path = folder.filePath(QStringLiteral("image"));
    WriteFile(path, image);
    McubootSerialUpdater updater({}, 921600, false, {}, nullptr);
    auto const port = QString::fromStdString(unit.Status().pty_path);
    if (!ConnectsInTime(updater, port, recovery.talks) || !updater.verifyDeviceId({12})) {
        return "not connected";
    }
    if (!updater.upload(path, {})) {
        return "failed";
    }
    auto const flash = unit.ReadMemory(simulator::kFlashStart, kHabitImageSize);
    return QByteArray(reinterpret_cast<char const*>(flash.data()), kHabitImageSize) == image
               ? "done"
               : "other flash";
}

class EveryRecoveryHabit : public testing::TestWithParam<Habit> {};

TEST_P(EveryRecoveryHabit, EndsTheUpdateAsTheDocumentsSay)
{
    McubootRecoveryOptions options;
    options.otp[simulator::kModelIdKey] = {std::byte{12}};
    GetParam().apply(options);
    EXPECT_EQ(Update(options), GetParam().end);
}

// docs/transports/mcuboot.md describes them.
INSTANTIATE_TEST_SUITE_P(
    , EveryRecoveryHabit,
    testing::Values(
        Habit{"TakesItsTime", [](auto& unit) { unit.times = simulator::kRealTimes; }, "done"},
        Habit{"BannerAndConsole", [](auto& unit) { unit.talks = true; }, "done"},
        Habit{"LogLineDirectlyBefore", [](auto& unit) { unit.log_lines = true; }, "done"},
        Habit{"LogLineAndPause",
              [](auto& unit) {
                  unit.log_lines = true;
                  unit.line_pause = kLongPause;
              },
              "not connected"},
        Habit{"LogLineAndErase",
              [](auto& unit) {
                  unit.log_lines = true;
                  unit.times = simulator::kRealTimes;
              },
              "failed"},
        Habit{"ShortLines", [](auto& unit) { unit.answer_line = 20; }, "done"},
        Habit{"PauseBetweenLines",
              [](auto& unit) {
                  unit.answer_line = 20;
                  unit.line_pause = kLongPause;
              },
              "not connected"},
        // Long enough for every answer of this unit.
        Habit{"PauseBetweenLongLines",
              [](auto& unit) {
                  unit.answer_line = 124;
                  unit.line_pause = kLongPause;
              },
              "done"}),
    [](auto const& row) { return std::string(row.param.name); });

}  // namespace
