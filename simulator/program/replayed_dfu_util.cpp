// A stand-in for dfu-util that does what the recorded one did: prints the same at the same times,
// writes the same file, and ends in the same way.
//   replayed_dfu_util RECORD SPEED JOURNAL ARGUMENT...
// RECORD: the record of a session. SPEED: times are divided by it; 0: none. JOURNAL: a file that
// keeps from run to run how far the record has come, one line a run. ARGUMENT: as dfu-util takes
// them.
//
// Other arguments than the recorded ones are a difference: the journal names it, and nothing is
// printed from then on. The path at the end is not compared. When the first recorded run comes
// again, the record begins again. The list of devices is not recorded; it has the unit alone.

#include <signal.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <QThread>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "simulator/program/tool_runs.h"

using simulator::ToolRun;

namespace {

constexpr int kDifferent = 1;
constexpr int kUnusableCommandLine = 64;  // as dfu-util has it

// What the journal's lines begin with.
constexpr char kRun[] = "run ";
constexpr char kBeginAgain[] = "begin-again";
constexpr char kDifference[] = "difference ";

void Note(QString const& journal, QString const& line)
{
    QFile file(journal);
    if (file.open(QIODevice::WriteOnly | QIODevice::Append)) {
        file.write(line.toUtf8() + '\n');
    }
}

// How many runs of the record are over; none after a difference.
std::optional<qsizetype> CountRuns(QString const& journal)
{
    QFile file(journal);
    qsizetype runs = 0;
    if (!file.open(QIODevice::ReadOnly)) {
        return runs;
    }
    for (auto const& line : file.readAll().split('\n')) {
        if (line.startsWith(kDifference)) {
            return std::nullopt;
        }
        runs = line.startsWith(kBeginAgain) ? 0 : runs + (line.startsWith(kRun) ? 1 : 0);
    }
    return runs;
}

class Clock {
public:
    explicit Clock(unsigned speed) : speed_(speed) {}

    // Waits for what happened so long after the tool's start.
    void WaitFor(std::chrono::nanoseconds time)
    {
        if (speed_ != 0 && time > reached_) {
            QThread::usleep(static_cast<unsigned long>(
                std::chrono::duration_cast<std::chrono::microseconds>(time - reached_).count() /
                speed_));
            reached_ = time;
        }
    }

private:
    unsigned speed_;
    std::chrono::nanoseconds reached_{0};
};

int Play(ToolRun const& run, QString const& path, unsigned speed)
{
    Clock clock(speed);
    for (auto const& [time, is_error, bytes] : run.outputs) {
        clock.WaitFor(time);
        auto* const stream = is_error ? stderr : stdout;
        std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
        std::fflush(stream);
    }
    clock.WaitFor(run.time);
    QFile file(path);
    if (!run.file.isEmpty() && file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        file.write(run.file);
        file.close();
    }
    if (run.status == QLatin1String("killed")) {
        pause();  // for the updater to lose its patience
    }
    if (run.status != QLatin1String("normal")) {
        raise(SIGKILL);
    }
    return run.exit_code;
}

int RunNext(QList<ToolRun> const& runs, QString const& journal, QStringList const& arguments,
            unsigned speed)
{
    auto next = CountRuns(journal);
    if (!next) {
        return kDifferent;
    }
    auto difference = simulator::FindDifference(runs.value(*next).arguments, arguments);
    if (difference && !simulator::FindDifference(runs.first().arguments, arguments)) {
        Note(journal, QLatin1String(kBeginAgain));
        next = 0;
        difference.reset();
    }
    if (difference) {
        auto const place = *next < runs.size()
                               ? QStringLiteral("packet %1, ").arg(runs[*next].number)
                               : QStringLiteral("after the last run, ");
        Note(journal, QLatin1String(kDifference) + place + *difference);
        return kDifferent;
    }
    auto const& run = runs[*next];
    Note(journal, QLatin1String(kRun) + arguments.join(QLatin1Char(' ')));
    if (*next + 1 == runs.size()) {
        Note(journal, QStringLiteral("complete"));
    }
    return Play(run, arguments.last(), speed);
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    auto const words = QCoreApplication::arguments();
    constexpr qsizetype kFirstArgument = 4;
    if (words.size() <= kFirstArgument) {
        std::fprintf(stderr, "usage: replayed_dfu_util RECORD SPEED JOURNAL ARGUMENT...\n");
        return kUnusableCommandLine;
    }
    auto const recording = record::ReadPcapngFile(words[1]);
    auto const runs = simulator::ReadToolRuns(recording);
    if (runs.isEmpty()) {
        std::fprintf(stderr, "replayed_dfu_util: %s: no run of dfu-util was recorded; %s\n",
                     qPrintable(words[1]), qPrintable(recording.error));
        return kUnusableCommandLine;
    }
    auto const arguments = words.mid(kFirstArgument);
    if (arguments.first() == QLatin1String("-l")) {
        std::printf("Found DFU: [%s] ver=0200, devnum=1, cfg=1, intf=0, path=\"1-1\", alt=0\n",
                    qPrintable(simulator::FindDeviceIds(runs)));
        return EXIT_SUCCESS;
    }
    return RunNext(runs, words[3], arguments, words[2].toUInt());
}
