// Measures the time from start to the first painted window, and the memory in use then, compared
// with a minimal Qt Widgets program in the same run. Needs its own empty X server: see README.md.

#include <fmt/format.h>

#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QProcess>
#include <QScreen>
#include <QThread>
#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;

constexpr size_t kRuns = 11;
constexpr auto kLimit = 20s;

struct Start {
    double seconds;
    double resident_mib;
};

QImage GrabScreen()
{
    return QGuiApplication::primaryScreen()->grabWindow(0).toImage();
}

double GetResidentMib(qint64 process)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(process));
    if (!status.open(QIODevice::ReadOnly)) {
        throw std::runtime_error("the program has ended");
    }
    for (auto const& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.mid(6).trimmed().split(' ').first().toDouble() / 1024;
        }
    }
    throw std::runtime_error("no VmRSS");
}

Start MeasureStart(QString const& program)
{
    auto const empty = GrabScreen();
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    auto const start = std::chrono::steady_clock::now();
    process.start(program, {});
    while (GrabScreen() == empty) {
        if (std::chrono::steady_clock::now() - start > kLimit) {
            throw std::runtime_error("no window appeared");
        }
    }
    std::chrono::duration<double> const painted = std::chrono::steady_clock::now() - start;
    QThread::msleep(500);  // until it has settled
    auto const resident = GetResidentMib(process.processId());
    process.kill();
    process.waitForFinished();
    while (GrabScreen() != empty) {
        QThread::msleep(10);
    }
    return {painted.count(), resident};
}

Start MeasureMedian(QString const& program)
{
    std::array<double, kRuns> seconds{};
    std::array<double, kRuns> resident{};
    for (size_t i = 0; i < kRuns; ++i) {
        auto const one = MeasureStart(program);
        seconds[i] = one.seconds;
        resident[i] = one.resident_mib;
    }
    std::ranges::sort(seconds);
    std::ranges::sort(resident);
    return {seconds[kRuns / 2], resident[kRuns / 2]};
}

}  // namespace

int main(int argc, char** argv)
{
    QGuiApplication const application(argc, argv);
    auto const minimal = MeasureMedian(QStringLiteral(FW_MINIMAL_WINDOW));
    auto const program = MeasureMedian(QStringLiteral(FW_PROGRAM));
    fmt::print("{:<16} {:>12} {:>14}\n", "", "first paint", "resident");
    fmt::print("{:<16} {:>9.0f} ms {:>10.1f} MiB\n", "minimal window", 1e3 * minimal.seconds,
               minimal.resident_mib);
    fmt::print("{:<16} {:>9.0f} ms {:>10.1f} MiB\n", "this program", 1e3 * program.seconds,
               program.resident_mib);
    fmt::print("{:<16} {:>12.2f} {:>14.2f}\n", "ratio", program.seconds / minimal.seconds,
               program.resident_mib / minimal.resident_mib);
    return 0;
}
