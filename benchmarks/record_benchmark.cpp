// Measures what the record of a session costs an update over UART, the transport with the most
// packets for its time: the same update with and without it, in turns, at the speed of the line and
// as fast as the machine goes; and what handing over one byte costs the thread that does it.

#include <fmt/format.h>
#include <sys/resource.h>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "benchmarks/benchmark_image.h"
#include "modules/stm32_updater/limits.h"
#include "record/session_recorder.h"
#include "tests/support/unit_process.h"
#include "updater/uart_firmware_updater.h"

namespace {

using benchmarks::Require;
using stm32_updater::kBaudRate;
using stm32_updater::kFlashStart;

constexpr qsizetype kImageSize = 128 * 1024;
constexpr int kTurns = 7;

struct UpdateCost {
    double wall;  // seconds
    double cpu;   // seconds, of all threads of this program
};

double GetCpuTime()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto const seconds = [](timeval const& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

record::RecorderSetup MakeSetup(QTemporaryDir const& folder)
{
    return {folder.filePath(QStringLiteral("sessions")),
            QStringLiteral("uart"),
            {},
            [](QString const& text) { Require(false, text.toUtf8().constData()); }};
}

// The end of the recorder, which waits for the disk, is outside of the measured time: an update
// does not wait for it.
UpdateCost RunUpdate(QString const& baud, QString const& image, record::SessionRecorder* recorder)
{
    UnitProcess const unit({QStringLiteral("--baud"), baud});
    UartFirmwareUpdater updater(image, kFlashStart, kFlashStart, 0, 0, kFlashStart, {}, nullptr);
    if (recorder != nullptr) {
        updater.SetRecord(*recorder);
    }
    auto const cpu = GetCpuTime();
    auto const start = std::chrono::steady_clock::now();
    updater.onConnectToDevice(unit.Property(QStringLiteral("pty")), {}, false);
    Require(updater.upload(image, {}), "the upload failed");
    std::chrono::duration<double> const wall = std::chrono::steady_clock::now() - start;
    return {wall.count(), GetCpuTime() - cpu};
}

// The smallest and the middle one of several turns: a disturbance can only add time.
void PrintRow(char const* name, double (*get)(UpdateCost const&),
              std::vector<UpdateCost> const& off, std::vector<UpdateCost> const& on)
{
    auto const sort = [get](std::vector<UpdateCost> const& costs) {
        std::vector<double> values;
        std::ranges::transform(costs, std::back_inserter(values), get);
        std::ranges::sort(values);
        return values;
    };
    auto const without = sort(off);
    auto const with = sort(on);
    fmt::print("{:<22} {:>9.4f} {:>9.4f} {:>7.4f}   {:>9.4f} {:>9.4f} {:>7.4f}\n", name,
               without.front(), with.front(), with.front() / without.front(), without[kTurns / 2],
               with[kTurns / 2], with[kTurns / 2] / without[kTurns / 2]);
}

void CompareUpdates(char const* name, QString const& baud, QString const& image)
{
    std::vector<UpdateCost> off;
    std::vector<UpdateCost> on;
    for (int turn = 0; turn < kTurns; ++turn) {
        QTemporaryDir const folder;
        off.push_back(RunUpdate(baud, image, nullptr));
        record::SessionRecorder recorder(MakeSetup(folder));
        on.push_back(RunUpdate(baud, image, &recorder));
    }
    PrintRow(
        fmt::format("{}, seconds", name).c_str(), [](auto const& cost) { return cost.wall; }, off,
        on);
    PrintRow(
        fmt::format("{}, CPU", name).c_str(), [](auto const& cost) { return cost.cpu; }, off, on);
}

void MeasureOneByte()
{
    constexpr int kPackets = 20'000;  // less than the buffer holds, so the disk plays no part
    QTemporaryDir const folder;
    record::SessionRecorder recorder(MakeSetup(folder));
    recorder.BeginSession({});
    auto const line = recorder.AddLine(QStringLiteral("line"), {});
    auto const start = std::chrono::steady_clock::now();
    for (int i = 0; i < kPackets; ++i) {
        recorder.AddBytes(line, record::Direction::kOut, "x");
    }
    std::chrono::duration<double, std::nano> const time = std::chrono::steady_clock::now() - start;
    fmt::print("\nHanding over a packet of one byte: {:.0f} ns\n", time.count() / kPackets);
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    QTemporaryDir const directory;
    auto const image = benchmarks::WriteImage(directory, kImageSize);
    fmt::print("An update of {} KiB, {} turns\n", kImageSize / 1024, kTurns);
    fmt::print("{:<22} {:^27}   {:^27}\n{:<22} {:>9} {:>9} {:>7}   {:>9} {:>9} {:>7}\n", "",
               "smallest", "median", "", "off", "on", "ratio", "off", "on", "ratio");
    CompareUpdates("paced", QString::number(kBaudRate), image);
    CompareUpdates("unpaced", QStringLiteral("0"), image);
    MeasureOneByte();
    return 0;
}
