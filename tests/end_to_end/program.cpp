#include "tests/end_to_end/program.h"

#include <signal.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>
#include <QSettings>
#include <QThread>
#include <stdexcept>

#include "config/startup_config.h"

namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(30);
constexpr int kButtonX = 89;
constexpr int kButtonY = 420;

QString RunXdotool(QStringList const& arguments)
{
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"), arguments);
    if (!xdotool.waitForStarted() || !xdotool.waitForFinished()) {
        throw std::runtime_error("xdotool does not run");
    }
    return QString::fromUtf8(xdotool.readAllStandardOutput()).trimmed();
}

bool WaitUntil(std::function<bool()> const& condition, std::chrono::milliseconds limit)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.hasExpired(limit.count())) {
            return false;
        }
        QThread::msleep(static_cast<unsigned long>(kPollInterval.count()));
        QCoreApplication::processEvents();
    }
    return true;
}

// The child of that name, or 0. /proc/PID/stat begins "PID (NAME) STATE PARENT".
pid_t FindChild(qint64 parent, QByteArray const& name)
{
    auto const middle = " (" + name + ") ";
    for (auto const& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
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

}  // namespace

Program::Program(TestBundle const& bundle, QProcessEnvironment const& environment)
    : reader_(bundle.Resources(), bundle.ConfigPath()),
      title_(ReadWindowTexts(QSettings(bundle.ConfigPath(), QSettings::IniFormat)).window_title)
{
    auto with_state = environment;
    with_state.insert(QStringLiteral("XDG_STATE_HOME"), state_.path());
    process_.setProcessEnvironment(with_state);
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.start(bundle.Executable(), {});
    if (!process_.waitForStarted()) {
        throw std::runtime_error("the program does not start");
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
    QFile log(state_.filePath(QStringLiteral("kelvane-firmware-updater/updater.log")));
    return log.open(QIODevice::ReadOnly) ? log.readAll() : QByteArray();
}

bool Program::WaitFor(std::function<bool(Screen const&)> const& condition,
                      std::chrono::milliseconds limit)
{
    return WaitUntil(
        [&] {
            auto const screen = Look();
            return screen && condition(*screen);
        },
        limit);
}

bool Program::WaitForWindow(QString const& title, std::chrono::milliseconds limit)
{
    return WaitUntil([&] { return !FindWindow(title).isEmpty(); }, limit);
}

bool Program::WaitForWindowToGo(std::chrono::milliseconds limit)
{
    return WaitUntil([&] { return FindWindow(title_).isEmpty(); }, limit);
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

void Program::PressUpdate()
{
    Click(1);
}

void Program::DoublePressUpdate()
{
    Click(2);
}

void Program::CloseWindow()
{
    RunXdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), FindWindow(title_),
                QStringLiteral("key"), QStringLiteral("alt+F4")});
}

bool Program::KillTool(QByteArray const& name, std::chrono::milliseconds limit)
{
    pid_t tool = 0;
    return WaitUntil(
               [&] {
                   tool = FindChild(process_.processId(), name);
                   return tool != 0;
               },
               limit) &&
           kill(tool, SIGKILL) == 0;
}

std::optional<int> Program::WaitForExit(std::chrono::milliseconds limit)
{
    if (IsRunning() && !process_.waitForFinished(static_cast<int>(limit.count()))) {
        return std::nullopt;
    }
    return process_.exitStatus() == QProcess::NormalExit ? std::optional(process_.exitCode())
                                                         : std::nullopt;
}

QString Program::FindWindow(QString const& title)
{
    auto const found =
        RunXdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                    QStringLiteral("--name"), QLatin1Char('^') + title + QLatin1Char('$')});
    return found.section(QLatin1Char('\n'), 0, 0);
}

QImage Program::Grab()
{
    if (window_.isEmpty()) {
        window_ = FindWindow(title_);
    }
    if (window_.isEmpty()) {
        return {};
    }
    auto* const screen = QGuiApplication::primaryScreen();
    return screen->grabWindow(static_cast<WId>(window_.toULongLong())).toImage();
}

void Program::Click(int times)
{
    RunXdotool({QStringLiteral("mousemove"), QStringLiteral("--window"), window_,
                QString::number(kButtonX), QString::number(kButtonY), QStringLiteral("click"),
                QStringLiteral("--repeat"), QString::number(times), QStringLiteral("--delay"),
                QStringLiteral("30"), QStringLiteral("1")});
}
