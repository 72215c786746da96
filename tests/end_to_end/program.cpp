#include "tests/end_to_end/program.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>
#include <QSettings>
#include <QThread>
#include <stdexcept>

#include "app/startup_config.h"

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

}  // namespace

Program::Program(TestBundle const& bundle, QProcessEnvironment const& environment)
    : reader_(bundle.Resources(), bundle.ConfigPath()),
      title_(ReadWindowTexts(QSettings(bundle.ConfigPath(), QSettings::IniFormat)).window_title)
{
    process_.setProcessEnvironment(environment);
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

void Program::PressReturn()
{
    RunXdotool({QStringLiteral("key"), QStringLiteral("Return")});
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
