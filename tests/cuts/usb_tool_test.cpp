// Updates over USB in which the tool is killed, stopped or silent after any line of its output. The
// real backend with its real times runs a stand-in that plays recorded output of dfu-util. The
// table "usb-tool" of docs/cut-matrix.md is the result.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <array>
#include <chrono>
#include <deque>
#include <initializer_list>
#include <string>
#include <vector>

#include "modules/stm32_updater/dfu_util_output.h"
#include "modules/stm32_updater/limits.h"
#include "tests/cuts/long_run.h"
#include "tests/cuts/side_by_side.h"
#include "tests/cuts/usb_run.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace cuts {
namespace {

enum class Phase { kList, kOtpRead, kDownload };

// What the program does with the tool, and what it makes of a tool that does not come to its end.
struct PhaseRow {
    char const* name;
    char const* record;            // the output of dfu-util
    char const* result;            // what the tool prints when it has the result
    char const* name_with_result;  // of a tool that has come that far
    std::chrono::milliseconds limit;
};

constexpr std::array kPhases{
    PhaseRow{"looking for units", "dfu_util_0.11_list.txt", "[0483:df11]",
             "looking for units, one printed", stm32_updater::kDfuListTimeout},
    PhaseRow{"reading the OTP area", "dfu_util_0.11_upload.txt", "] 100%",
             "reading the OTP area, all in the file", stm32_updater::kDfuOtpTimeout},
    PhaseRow{"download", "dfu_util_0.11_download.txt", "] 100%", "download", {}},
};

enum class ToolEvent { kKilled, kStopped, kStoppedAndClosed, kSilent };

struct EventRow {
    char const* name;
    char const* name_in_download;
    char const* commands;  // of the shell
};

constexpr char kStop[] = ": >\"$here/there\"\nkill -s STOP $$\n";

constexpr std::array kEvents{
    EventRow{"the tool is killed", "the tool is killed", "kill -s KILL $$\n"},
    EventRow{"the tool is stopped; the program kills it after 30 s",
             "the tool is stopped; nothing ends until it is killed", kStop},
    EventRow{"", "the tool is stopped, the window closed; the program ends when the tool is killed",
             kStop},
    EventRow{"the tool is silent; the program kills it after 30 s",
             "the tool is silent, and goes on later",
             ": >\"$here/there\"\nread -r _ <\"$here/gate\"\n"},
};

struct StandInCase {
    Phase phase;
    ToolEvent event;
    qsizetype pieces;  // of the output, before it happens

    PhaseRow const& InPhase() const { return kPhases.at(static_cast<size_t>(phase)); }
    EventRow const& Event() const { return kEvents.at(static_cast<size_t>(event)); }
    bool IsDownload() const { return phase == Phase::kDownload; }
};

// The lines of a tool's output; a carriage return ends one as well, for a bar that moves.
QByteArrayList ReadRecordedLines(PhaseRow const& phase)
{
    auto const output =
        ReadFile(QStringLiteral(FW_RECORDED_OUTPUT) + u'/' + QLatin1String(phase.record));
    QByteArrayList lines(1);
    for (auto const byte : output) {
        lines.last().append(byte);
        if (byte == '\n' || byte == '\r') {
            lines.append(QByteArray());
        }
    }
    lines.removeIf([](auto const& line) { return line.isEmpty(); });
    return lines;
}

// The model record of the session's model, in an area that is otherwise erased.
QByteArray MakeOtpArea()
{
    return QByteArray("\x11\x47\x23\x01\x01", 5).leftJustified(1024, '\xFF');
}

// The tool of one case, in a folder of its own.
class PlayingTool {
public:
    explicit PlayingTool(StandInCase const& row);
    ~PlayingTool()
    {
        if (gate_ >= 0) {
            ::close(gate_);
        }
    }
    PlayingTool(PlayingTool const&) = delete;
    PlayingTool& operator=(PlayingTool const&) = delete;

    QString Path() const { return folder_.filePath(u"dfu-util"_s); }
    QByteArray const& Before() const { return before_; }

    // Whether the event has happened.
    bool IsThere() const { return QFile::exists(folder_.filePath(u"there"_s)); }
    // Lets a silent tool go on. The gate stays open until the tool has read from it.
    void LetGo()
    {
        gate_ = ::open(folder_.filePath(u"gate"_s).toLocal8Bit().constData(), O_RDWR | O_CLOEXEC);
        EXPECT_EQ(::write(gate_, "\n", 1), 1);
    }

    // The processes of all its runs.
    QList<pid_t> Processes() const
    {
        QList<pid_t> ids;
        for (auto const& id : ReadFile(folder_.filePath(u"process_ids"_s)).split('\n')) {
            if (!id.isEmpty()) {
                ids.append(id.toInt());
            }
        }
        return ids;
    }

private:
    QTemporaryDir folder_;
    QByteArray before_;
    int gate_ = -1;
};

// How dfu-util fills the file of the OTP area: it opens it before its first bar, and the area comes
// in one block, before the last.
QByteArray FillFile(QByteArray const& output)
{
    return output.contains("] 100%")   ? "cp \"$here/area\" \"$last\"\n"
           : output.contains("]   0%") ? ": >\"$last\"\n"
                                       : "";
}

PlayingTool::PlayingTool(StandInCase const& row)
{
    auto const lines = ReadRecordedLines(row.InPhase());
    before_ = lines.first(row.pieces).join();
    WriteFile(folder_.filePath(u"before"_s), before_);
    WriteFile(folder_.filePath(u"after"_s), lines.sliced(row.pieces).join());
    WriteFile(folder_.filePath(u"area"_s), MakeOtpArea());
    WriteFile(Path(),
              "#!/bin/sh\nhere=${0%/*}\necho $$ >>\"$here/process_ids\"\n"
              "for last; do :; done\n" +
                  QByteArray(row.IsDownload() ? "case \"$*\" in *-U*)\n"
                                                "    cp \"$here/area\" \"$last\"\n"
                                                "    exit\n"
                                                "esac\n"
                                              : "") +
                  "cat \"$here/before\"\n" +
                  (row.phase == Phase::kOtpRead ? FillFile(before_) : QByteArray()) +
                  row.Event().commands + "cat \"$here/after\"\n");
    QFile::setPermissions(Path(), QFile::ReadOwner | QFile::ExeOwner);
    ::mkfifo(folder_.filePath(u"gate"_s).toLocal8Bit().constData(), S_IRUSR | S_IWUSR);
}

// Whether the tool has printed the unit, or has written the OTP area.
bool HasResult(StandInCase const& row)
{
    auto const output = ReadRecordedLines(row.InPhase()).first(row.pieces).join();
    return output.contains(row.InPhase().result);
}

bool IsStopped(ToolEvent event)
{
    return event == ToolEvent::kStopped || event == ToolEvent::kStoppedAndClosed;
}

// The tool is in the middle of a download and does not go on: nothing has ended, the bar shows what
// the tool has printed, and the worker thread answers.
void ExpectWaitingBackend(UsbSession& session, PlayingTool const& tool)
{
    if (auto const percentage = stm32_updater::FindDownloadPercentage(tool.Before())) {
        session.WaitFor(QString::number(*percentage));
    }
    session.AskForTool();
    if (session.IsFinished()) {
        throw UsbTimeout("an end without an end of the tool");
    }
}

// A download up to its end, which the session need not have reported yet.
void RunDownload(UsbSession& session, PlayingTool& tool, ToolEvent event)
{
    session.Send("connect");
    session.WaitFor(u"Connected"_s);
    session.Send("update");
    session.WaitFor(u"erase started"_s);
    if (event == ToolEvent::kKilled) {
        return;
    }
    session.WaitUntil([&] { return tool.IsThere(); }, "the tool has not come that far");
    auto const process = session.AskForTool();
    if (IsStopped(event)) {
        session.WaitUntil([&] { return GetProcessState(process) == 'T'; }, "not stopped");
    }
    ExpectWaitingBackend(session, tool);
    if (event == ToolEvent::kStoppedAndClosed) {
        session.Send("close");
        if (!session.StaysAlive()) {
            throw UsbTimeout("the program does not wait for the tool");
        }
    }
    if (event == ToolEvent::kSilent) {
        tool.LetGo();
    } else {
        ::kill(process, SIGKILL);
    }
}

UsbEnd RunStandInCase(StandInCase const& row, PlayingTool& tool)
{
    UsbSession session(tool.Path(), u"image"_s);
    QElapsedTimer timer;
    timer.start();
    UsbEnd end;
    if (row.IsDownload()) {
        RunDownload(session, tool, row.event);
        if (row.event != ToolEvent::kStoppedAndClosed) {
            session.WaitFor(u"finished"_s);
            session.WaitFor(u"100"_s);
        }
        end = session.Close();
    } else {
        session.Send(row.phase == Phase::kList ? "list" : "connect");
        session.WaitForStatus();
        auto const taken = std::chrono::milliseconds(timer.elapsed());
        end = session.Close();
        auto const is_at_limit = taken >= row.InPhase().limit;
        end.problem += is_at_limit == (row.event != ToolEvent::kKilled) ? "" : "wrong time";
    }
    for (auto const process : tool.Processes()) {
        end.problem += GetProcessState(process) == '-' ? "" : "the tool still runs";
    }
    return end;
}

std::vector<StandInCase> ListStandInCases()
{
    std::vector<StandInCase> rows;
    auto const add = [&](Phase phase, std::initializer_list<ToolEvent> events) {
        auto const lines = ReadRecordedLines(kPhases.at(static_cast<size_t>(phase))).size();
        auto const step = IsLongRun() ? 1 : lines / 3;
        for (auto const event : events) {
            for (qsizetype pieces = 0; pieces <= lines; pieces += step) {
                rows.push_back({phase, event, pieces});
            }
        }
    };
    // Those that wait for a limit come first.
    for (auto const phase : {Phase::kList, Phase::kOtpRead}) {
        add(phase, {ToolEvent::kStopped, ToolEvent::kSilent, ToolEvent::kKilled});
    }
    add(Phase::kDownload, {ToolEvent::kKilled, ToolEvent::kStopped, ToolEvent::kStoppedAndClosed,
                           ToolEvent::kSilent});
    return rows;
}

// What must come out: the program takes whatever the tool has printed of a list and written of the
// OTP area, and an update fails only when its tool is killed.
UsbEnd GetExpectedEnd(StandInCase const& row)
{
    switch (row.phase) {
        case Phase::kList:
            return {HasResult(row) ? "listed 1" : "listed 0", "UPDATE", ""};
        case Phase::kOtpRead:
            return HasResult(row)
                       ? UsbEnd{"Connected", "UPDATE", ""}
                       : UsbEnd{"VerificationFailed", std::string("UPDATE") + kUsbError, ""};
        case Phase::kDownload:
            break;
    }
    return row.event == ToolEvent::kSilent
               ? UsbEnd{"finished true", "DONE", ""}
               : UsbEnd{"finished false", std::string("UPDATING") + kUsbError, ""};
}

TEST(UsbMatrix, EndsRightWhateverHappensToTheToolAfterAnyLine)
{
    auto const cases = ListStandInCases();
    // All of them before the first run: a process that another thread starts meanwhile would hold a
    // file open that is being written, and the system runs no such file.
    std::deque<PlayingTool> tools;
    for (auto const& row : cases) {
        tools.emplace_back(row);
    }
    auto const ends = RunSideBySide<UsbEnd>(cases.size(), kUsbRunsAtOnce, [&](size_t index) {
        return RunStandInCase(cases[index], tools[index]);
    });
    UsbTable table;
    for (size_t i = 0; i < cases.size(); ++i) {
        auto const& row = cases[i];
        table.Add(HasResult(row) ? row.InPhase().name_with_result : row.InPhase().name,
                  row.IsDownload() ? row.Event().name_in_download : row.Event().name,
                  "after " + std::to_string(row.pieces) + " lines", ends[i], GetExpectedEnd(row));
    }
    EXPECT_TRUE(table.IsInDocument("usb-tool"));
}

}  // namespace
}  // namespace cuts
