// Measures how close the UART transport comes to the speed of the line itself, compared with
// Debian's stm32flash on the same simulated unit in the same run. The figures are differences
// between two sizes of image, so that opening, identifying and erasing are left out.

#include <fmt/format.h>
#include <sys/resource.h>

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>

#include "benchmarks/benchmark_image.h"
#include "modules/stm32_updater/limits.h"
#include "tests/support/unit_process.h"
#include "updater/uart_firmware_updater.h"

namespace {

using benchmarks::Require;
using stm32_updater::kBaudRate;
using stm32_updater::kFlashStart;

constexpr double kBitsPerByte = 11;
// Write Memory of 256 bytes: command 2, ACK, address 5, ACK, length + data + checksum 258, ACK.
constexpr double kWireBytesPerBlock = 268;
constexpr qsizetype kSmall = 64 * 1024;
constexpr qsizetype kLarge = 256 * 1024;
constexpr double kBlocks = static_cast<double>(kLarge - kSmall) / stm32_updater::kMaxBlock;
constexpr int kRepeats = 3;

struct Cost {
    double wall;  // seconds
    double cpu;   // seconds, of the writing program alone
};

double GetCpuSeconds(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    auto const seconds = [](timeval const& t) {
        return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

Cost Measure(int who, std::function<void()> const& work)
{
    auto const cpu = GetCpuSeconds(who);
    auto const start = std::chrono::steady_clock::now();
    work();
    std::chrono::duration<double> const wall = std::chrono::steady_clock::now() - start;
    return {wall.count(), GetCpuSeconds(who) - cpu};
}

using Writer = std::function<Cost(QString const& pty, QString const& image)>;

Cost WriteWithUpdater(QString const& pty, QString const& image)
{
    UartFirmwareUpdater updater(image, kFlashStart, kFlashStart, 0, 0, kFlashStart, {}, nullptr);
    Require(updater.connect(pty), "the updater does not connect");
    return Measure(RUSAGE_SELF, [&] { Require(updater.upload(image, {}), "the upload failed"); });
}

Cost WriteWithStm32flash(QString const& pty, QString const& image)
{
    // A pseudo-terminal keeps no parity, and stm32flash fails if it does not get what it asked for.
    return Measure(RUSAGE_CHILDREN, [&] {
        QProcess stm32flash;
        stm32flash.start(QStringLiteral("stm32flash"),
                         {QStringLiteral("-b"), QString::number(kBaudRate), QStringLiteral("-m"),
                          QStringLiteral("8n1"), QStringLiteral("-w"), image, QStringLiteral("-S"),
                          QStringLiteral("0x08000000"), pty});
        Require(stm32flash.waitForFinished(-1) && stm32flash.exitCode() == 0,
                "stm32flash failed or is missing");
    });
}

Cost WriteOnce(Writer const& writer, QString const& baud, QString const& image)
{
    UnitProcess unit({QStringLiteral("--baud"), baud});
    return writer(unit.Property(QStringLiteral("pty")), image);
}

// The cheapest of several tries, each quantity by itself: a disturbance can only add time.
Cost FindCost(Writer const& writer, QString const& baud, QString const& image)
{
    Cost best{std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
    for (int i = 0; i < kRepeats; ++i) {
        auto const cost = WriteOnce(writer, baud, image);
        best = {std::min(best.wall, cost.wall), std::min(best.cpu, cost.cpu)};
    }
    return best;
}

void Report(char const* name, Writer const& writer, QTemporaryDir const& directory)
{
    auto const small = benchmarks::WriteImage(directory, kSmall);
    auto const large = benchmarks::WriteImage(directory, kLarge);
    auto const difference = [&](unsigned baud) {
        auto const pace = QString::number(baud);
        auto const a = FindCost(writer, pace, small);
        auto const b = FindCost(writer, pace, large);
        return Cost{b.wall - a.wall, b.cpu - a.cpu};
    };
    auto const wire = kBlocks * kWireBytesPerBlock * kBitsPerByte / kBaudRate;
    auto const paced = difference(kBaudRate);
    auto const unpaced = difference(0);
    fmt::print("{:<12} {:>8.3f} s {:>8.3f} {:>14.1f} us {:>14.1f} us\n", name, paced.wall,
               paced.wall / wire, 1e6 * unpaced.wall / kBlocks, 1e6 * unpaced.cpu / kBlocks);
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    QTemporaryDir const directory;
    fmt::print("{} blocks of {} bytes, {} baud 8E1: {:.3f} s on the wire\n\n", kBlocks,
               stm32_updater::kMaxBlock, kBaudRate,
               kBlocks * kWireBytesPerBlock * kBitsPerByte / kBaudRate);
    fmt::print("{:<12} {:>10} {:>8} {:>17} {:>17}\n", "", "paced", "/ wire", "unpaced / block",
               "its CPU / block");
    Report("this program", WriteWithUpdater, directory);
    Report("stm32flash", WriteWithStm32flash, directory);
    return 0;
}
