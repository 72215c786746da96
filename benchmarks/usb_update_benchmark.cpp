// Measures what the program adds to a USB update: everything from UpdateDevice to the last
// ProgressUpdate through the USB backend on its worker thread, compared with the same dfu-util
// alone on the same simulated unit, in turn within one run.
//
// The program looks at the tool's output once a second and fills the bar at the look after the
// tool's end, so by design the bar may be up to one second late.

#include <fmt/format.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <vector>

#include "benchmarks/benchmark_image.h"
#include "modules/stm32_updater/dfu_util_arguments.h"
#include "modules/stm32_updater/limits.h"
#include "tests/support/unit_process.h"
#include "updater/usb_firmware_updater.h"

namespace {

using benchmarks::Require;

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int kImageSize = 256 * 1024;
constexpr int kRepeats = 3;
constexpr int kTimeoutMs = 60000;
constexpr uint32_t kOtp = 0x1FFF7000;
constexpr unsigned long kOtpSize = 1024;

struct Taken {
    Seconds to_result;  // until the caller knows of the tool's end
    Seconds to_full_bar;
};

// The same for both: the launcher replaces itself by the installed tool.
QString Tool()
{
    return QStringLiteral(FW_DFU_UTIL_LAUNCHER);
}

UnitProcess MakeUnit()
{
    return UnitProcess(
        {QStringLiteral("--protocol"), QStringLiteral("dfu"), QStringLiteral("--real-times")});
}

void RequireWhole(UnitProcess& unit)
{
    Require(
        unit.ReadMemory(stm32_updater::kFlashStart, kImageSize) == benchmarks::GetImage(kImageSize),
        "the unit does not hold the image");
    Require(unit.Status(QStringLiteral("state")) == QLatin1String("running"),
            "the unit was not started");
}

Seconds RunToolAlone(QString const& image)
{
    auto unit = MakeUnit();
    QProcess tool;
    tool.setProcessEnvironment(unit.Environment());
    auto const start = Clock::now();
    tool.start(Tool(), stm32_updater::GetDownloadArguments(QLatin1String(stm32_updater::kDfuDevice),
                                                           image, stm32_updater::kFlashStart));
    Require(tool.waitForFinished(kTimeoutMs), "the tool does not end");
    Seconds const taken = Clock::now() - start;
    RequireWhole(unit);
    return taken;
}

// The tool finds the simulated unit through the environment that it inherits.
class UnitInEnvironment {
public:
    explicit UnitInEnvironment(UnitProcess const& unit)
    {
        for (auto const* name : {"UMOCKDEV_DIR", "LD_PRELOAD"}) {
            qputenv(name, unit.Environment().value(QString::fromLatin1(name)).toUtf8());
        }
    }
    ~UnitInEnvironment()
    {
        qunsetenv("UMOCKDEV_DIR");
        qunsetenv("LD_PRELOAD");
    }
};

Taken RunProgram(QString const& image)
{
    auto unit = MakeUnit();
    UnitInEnvironment const environment(unit);
    QThread worker;
    UsbFirmwareUpdater updater(image, Tool(), stm32_updater::kFlashStart, kOtp, kOtpSize, {},
                               nullptr);
    QObject gui;
    QEventLoop loop;
    Taken taken{};
    bool has_ended = false;
    auto const start = Clock::now();
    QObject::connect(&updater, &FirmwareUpdaterBase::UpdateFinished, &gui, [&] {
        has_ended = true;
        taken.to_result = Clock::now() - start;
    });
    QObject::connect(&updater, &FirmwareUpdaterBase::ProgressUpdate, &gui, [&](int percent) {
        if (percent == 100 && has_ended) {
            taken.to_full_bar = Clock::now() - start;
            loop.quit();
        }
    });
    auto* const gui_thread = QThread::currentThread();
    QObject::connect(
        &worker, &QThread::finished, &updater, [&] { updater.moveToThread(gui_thread); },
        Qt::DirectConnection);
    updater.moveToThread(&worker);
    worker.start();
    QTimer::singleShot(kTimeoutMs, &loop, &QEventLoop::quit);
    QMetaObject::invokeMethod(&updater, &FirmwareUpdaterBase::onStartUpdate, Qt::QueuedConnection);
    loop.exec();
    worker.quit();
    worker.wait();
    Require(taken.to_full_bar > Seconds::zero(), "the update does not end");
    RequireWhole(unit);
    return taken;
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    QTemporaryDir const directory;
    auto const image = benchmarks::WriteImage(directory, kImageSize);

    // The quickest of several turns counts: a disturbance can only add time.
    auto tool = Seconds::max();
    Taken program{Seconds::max(), Seconds::max()};
    for (int i = 0; i < kRepeats; ++i) {
        tool = std::min(tool, RunToolAlone(image));
        auto const taken = RunProgram(image);
        program.to_result = std::min(program.to_result, taken.to_result);
        program.to_full_bar = std::min(program.to_full_bar, taken.to_full_bar);
    }
    fmt::print("256 KiB, erased and written: dfu-util alone {:.3f} s\n", tool.count());
    auto const print = [&](char const* what, Seconds taken) {
        fmt::print("program, {:<14} {:.3f} s, ratio {:.3f}, {:+.3f} s\n", what, taken.count(),
                   taken / tool, (taken - tool).count());
    };
    print("result known:", program.to_result);
    print("bar full:", program.to_full_bar);
    return 0;
}
