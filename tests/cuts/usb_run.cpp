#include "tests/cuts/usb_run.h"

#include <QDeadlineTimer>
#include <QDir>
#include <algorithm>
#include <array>
#include <optional>

#include "app/window_state.h"
#include "tests/cuts/document_table.h"
#include "tests/cuts/long_run.h"
#include "tests/support/files.h"
#include "tests/support/shown_window.h"

using namespace Qt::StringLiterals;

namespace cuts {
namespace {

// For what comes at once on an idle machine, or after a poll or a limit of the backend's.
constexpr int kPatienceMs = 90'000;
constexpr int kLookMs = 10;

// How long a process that should not end is watched.
constexpr int kWatchMs = 300;

// The event that a signal causes; none for a percentage and for what is not a signal.
std::optional<WindowEvent> FindEvent(QString const& signal)
{
    static std::array const kEvents{std::pair{"Connected", WindowEvent::UnitConnected},
                                    std::pair{"Disconnected", WindowEvent::UnitDisconnected},
                                    std::pair{"VerificationFailed", WindowEvent::UnitRefused},
                                    std::pair{"started", WindowEvent::UpdateStarted},
                                    std::pair{"erase started", WindowEvent::EraseStarted},
                                    std::pair{"erase finished", WindowEvent::EraseFinished},
                                    std::pair{"finished true", WindowEvent::UpdateSucceeded},
                                    std::pair{"finished false", WindowEvent::UpdateFailed}};
    auto const* const found = std::ranges::find_if(
        kEvents, [&](auto const& row) { return signal == QLatin1String(row.first); });
    return found == kEvents.end() ? std::nullopt : std::optional(found->second);
}

// The end of a listing, of a connect and of an update.
bool IsStatus(QString const& signal)
{
    static QStringList const kConnects{u"Connected"_s, u"VerificationFailed"_s};
    return signal.startsWith(u"listed"_s) || signal.startsWith(u"finished"_s) ||
           kConnects.contains(signal);
}

}  // namespace

UsbSession::UsbSession(QString const& tool, QString const& image, QProcessEnvironment environment)
{
    environment.insert(u"TMPDIR"_s, temporary_.path());
    process_.setProcessEnvironment(environment);
    // The tool's complaints; the session's own warnings are lines.
    process_.setStandardErrorFile(QProcess::nullDevice());
    process_.start(QStringLiteral(FW_USB_SESSION), {tool, image});
}

UsbSession::~UsbSession()
{
    if (process_.state() != QProcess::NotRunning) {
        process_.kill();
        process_.waitForFinished();
    }
}

void UsbSession::Send(QByteArray const& command)
{
    process_.write(command + '\n');
    process_.waitForBytesWritten();
}

QString UsbSession::FindLine(std::function<bool(QString const& line)> const& is_wanted,
                             char const* what)
{
    QString found;
    WaitUntil(
        [&] {
            while (found.isEmpty() && looked_at_ < lines_.size()) {
                auto const& line = lines_.at(looked_at_++);
                found = is_wanted(line) ? line : QString();
            }
            return !found.isEmpty();
        },
        what);
    return found;
}

QString UsbSession::WaitFor(QString const& beginning)
{
    auto const what = "no line " + beginning.toStdString();
    return FindLine([&](QString const& line) { return line.startsWith(beginning); }, what.c_str());
}

void UsbSession::WaitForStatus()
{
    FindLine(IsStatus, "no status");
}

void UsbSession::WaitUntil(std::function<bool()> const& condition, char const* what)
{
    QDeadlineTimer const end(kPatienceMs);
    for (ReadLines(0); !condition(); ReadLines(kLookMs)) {
        if (end.hasExpired()) {
            throw UsbTimeout(what + (u": "_s + lines_.join(u", "_s)).toStdString());
        }
    }
}

pid_t UsbSession::AskForTool()
{
    Send("tool");
    return static_cast<pid_t>(WaitFor(u"tool "_s).section(u' ', 1).toInt());
}

bool UsbSession::IsFinished() const
{
    return std::ranges::any_of(lines_,
                               [](auto const& line) { return line.startsWith(u"finished"_s); });
}

bool UsbSession::StaysAlive()
{
    return !process_.waitForFinished(kWatchMs);
}

UsbEnd UsbSession::Close()
{
    Send("close");
    if (!process_.waitForFinished(kPatienceMs)) {
        throw UsbTimeout("the session does not end");
    }
    ReadLines(0);
    UsbEnd end;
    WindowChange window;
    window.button_text = u"UPDATE"_s;
    for (auto const& line : lines_) {
        if (auto const event = FindEvent(line)) {
            ShowChange(window, GetWindowChange(*event, TargetUsb));
        }
        end.result = IsStatus(line) ? line.toStdString() : end.result;
        end.problem += line.startsWith(u"warning"_s) ? line.toStdString() + "; " : "";
    }
    auto const bar = window.progress_format.value_or(QString());
    // The other texts are percentages.
    end.window = (*window.button_text + (bar.startsWith(u"Error"_s) ? u", "_s + bar : QString()))
                     .toStdString();
    if (process_.exitCode() != 0 || lines_.isEmpty() || lines_.last() != u"left nothing"_s) {
        end.problem += "ended with: " + lines_.join(u", "_s).toStdString();
    }
    auto const files = QDir(temporary_.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    end.problem += files.isEmpty() ? "" : "; left the file " + files.first().toStdString();
    return end;
}

void UsbSession::ReadLines(int timeout_ms)
{
    process_.waitForReadyRead(timeout_ms);
    while (process_.canReadLine()) {
        lines_.append(QString::fromUtf8(process_.readLine()).trimmed());
    }
}

// /proc/PID/stat begins "PID (NAME) STATE".
char GetProcessState(pid_t process)
{
    auto const stat = ReadFile(u"/proc/%1/stat"_s.arg(process));
    auto const name_end = stat.lastIndexOf(')');
    return name_end < 0 ? '-' : stat.at(name_end + 2);
}

void UsbTable::Add(std::string const& when, std::string const& event, std::string const& where,
                   UsbEnd const& end, UsbEnd const& expected)
{
    EXPECT_EQ(end.problem, "") << when << ", " << event << ", " << where;
    EXPECT_EQ(end.result, expected.result) << when << ", " << event << ", " << where;
    EXPECT_EQ(end.window, expected.window) << when << ", " << event << ", " << where;
    std::vector const row{when, event, end.result, end.window};
    auto const same =
        std::ranges::find(rows_, row, &std::pair<std::vector<std::string>, int>::first);
    if (same == rows_.end()) {
        rows_.emplace_back(row, 1);
    } else {
        ++same->second;
    }
}

testing::AssertionResult UsbTable::IsInDocument(std::string const& name) const
{
    if (!IsLongRun()) {
        return testing::AssertionSuccess();
    }
    DocumentTable table{{"During", "What happens", "Cases", "Backend", "Window"}};
    for (auto const& [row, cases] : rows_) {
        table.push_back({row[0], row[1], std::to_string(cases), row[2], row[3]});
    }
    return cuts::IsInDocument(table, name);
}

}  // namespace cuts
