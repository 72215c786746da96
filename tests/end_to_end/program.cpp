#include "tests/end_to_end/program.h"

#include <signal.h>
#include <sys/prctl.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>
#include <QThread>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

constexpr unsigned long kPollMilliseconds = 30;

QString RunXdotool(QStringList const& arguments)
{
    QProcess xdotool;
    xdotool.start(u"xdotool"_s, arguments);
    if (!xdotool.waitForStarted() || !xdotool.waitForFinished()) {
        throw std::runtime_error("xdotool does not run");
    }
    return QString::fromUtf8(xdotool.readAllStandardOutput()).trimmed();
}

}  // namespace

bool WaitUntil(std::function<bool()> const& condition, Program::Limit limit)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.hasExpired(limit.count())) {
            return false;
        }
        QThread::msleep(kPollMilliseconds);
        QCoreApplication::processEvents();
    }
    return true;
}

// /proc/PID/stat begins "PID (NAME) STATE PARENT".
pid_t FindChildProcess(qint64 parent, QByteArray const& name)
{
    auto const middle = " (" + name.left(15) + ") ";
    for (auto const& entry : QDir(u"/proc"_s).entryList(QDir::Dirs)) {
        QFile stat(u"/proc/%1/stat"_s.arg(entry));
        if (!stat.open(QIODevice::ReadOnly)) {
            continue;
        }
        auto const line = stat.readAll();
        auto const rest = line.mid(line.indexOf(middle) + middle.size()).split(' ');
        if (line.contains(middle) && rest.value(1).toLongLong() == parent) {
            return entry.toInt();
        }
    }
    return 0;
}

Program::Program(TestBundle const& bundle, QProcessEnvironment const& environment,
                 QString const& directory)
    : directory_(directory.isEmpty() ? temporary_.path() : directory),
      reader_(bundle.Resources(), bundle.ConfigPath())
{
    auto with_state = environment;
    with_state.insert(u"XDG_STATE_HOME"_s, directory_.absolutePath());
    // The program chooses its style itself, whatever the user's desktop asks for.
    with_state.insert(u"QT_STYLE_OVERRIDE"_s, u"windows"_s);
    process_.setProcessEnvironment(with_state);
    process_.setProcessChannelMode(QProcess::MergedChannels);
    process_.setStandardOutputFile(directory_.filePath(u"updater.txt"_s));
    // It does not outlive this process, however that ends.
    process_.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
    process_.start(bundle.Executable(), {});
    if (!process_.waitForStarted()) {
        throw std::runtime_error("the updater does not start");
    }
}

Program::~Program()
{
    if (IsRunning()) {
        process_.kill();
        process_.waitForFinished();
    }
}

QByteArray Program::ReadLog() const
{
    QFile log(directory_.filePath(u"kelvane-firmware-updater/updater.log"_s));
    return log.open(QIODevice::ReadOnly) ? log.readAll() : QByteArray();
}

bool Program::WaitFor(Condition const& condition, Limit limit)
{
    bool seen = false;
    WaitUntil(
        [&] {
            auto const screen = Look();
            seen = screen && condition(*screen);
            bool const is_closed = !screen && !window_.isEmpty() && !HasWindow();
            return seen || is_closed || !IsRunning();
        },
        limit);
    return seen;
}

bool Program::WaitForWindow(QString const& title, Limit limit)
{
    return WaitUntil(
        [&] {
            auto const window = FindWindow();
            return !window.isEmpty() && RunXdotool({u"getwindowname"_s, window}) == title;
        },
        limit);
}

bool Program::WaitForWindowToGo(Limit limit)
{
    return WaitUntil([&] { return !HasWindow(); }, limit);
}

std::optional<Screen> Program::Look()
{
    auto const picture = Grab();
    auto const screen = picture.isNull() ? std::nullopt : reader_.Read(picture);
    if (screen) {
        last_screen_ = screen;
    }
    return screen;
}

void Program::CloseWindow()
{
    RunXdotool({u"windowactivate"_s, u"--sync"_s, FindWindow(), u"key"_s, u"alt+F4"_s});
}

bool Program::KillTool(QByteArray const& name, Limit limit)
{
    pid_t tool = 0;
    return WaitUntil(
               [&] {
                   tool = FindChildProcess(process_.processId(), name);
                   return tool != 0;
               },
               limit) &&
           kill(tool, SIGKILL) == 0;
}

std::optional<int> Program::WaitForExit(Limit limit)
{
    if (IsRunning() && !process_.waitForFinished(static_cast<int>(limit.count()))) {
        return std::nullopt;
    }
    return process_.exitStatus() == QProcess::NormalExit ? std::optional(process_.exitCode())
                                                         : std::nullopt;
}

QString Program::DescribeEnd() const
{
    return process_.exitStatus() == QProcess::CrashExit
               ? u"crashed"_s
               : u"exit status %1"_s.arg(process_.exitCode());
}

// By the process and not by the title, which may be any text.
QString Program::FindWindow() const
{
    auto const found = RunXdotool(
        {u"search"_s, u"--onlyvisible"_s, u"--pid"_s, QString::number(process_.processId())});
    return found.section(u'\n', 0, 0);
}

QImage Program::Grab()
{
    if (window_.isEmpty()) {
        window_ = FindWindow();
    }
    if (window_.isEmpty()) {
        return {};
    }
    auto* const screen = QGuiApplication::primaryScreen();
    return screen->grabWindow(static_cast<WId>(window_.toULongLong())).toImage();
}

void Program::Click(int times)
{
    auto const place = reader_.ButtonRect().center();
    RunXdotool({u"mousemove"_s, u"--window"_s, window_, QString::number(place.x()),
                QString::number(place.y()), u"click"_s, u"--repeat"_s, QString::number(times),
                u"--delay"_s, u"30"_s, u"1"_s});
}
