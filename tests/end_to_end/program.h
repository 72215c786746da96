// The staged program as a child process on this test's screen: its window is looked at through the
// X server and operated with xdotool, as a person would.
#pragma once

#include <QByteArray>
#include <QImage>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>
#include <chrono>
#include <functional>
#include <optional>

#include "tests/end_to_end/test_bundle.h"
#include "tests/end_to_end/window_reader.h"

class Program {
public:
    Program(TestBundle const& bundle, QProcessEnvironment const& environment);
    ~Program();

    // Bounded waits; false when the condition did not come true. The last screen that could be read
    // is kept for the failure message.
    bool WaitFor(std::function<bool(Screen const&)> const& condition,
                 std::chrono::milliseconds limit = std::chrono::seconds(20));
    bool WaitForWindow(QString const& title,
                       std::chrono::milliseconds limit = std::chrono::seconds(20));
    bool WaitForWindowToGo(std::chrono::milliseconds limit = std::chrono::seconds(20));

    // The screen as it is now; none while it shows none of the window's states.
    std::optional<Screen> Look();
    std::optional<Screen> const& LastScreen() const { return last_screen_; }

    // Keeps the window's picture for whoever looks into a failed test.
    void SavePicture(QString const& path) { Grab().save(path); }

    void PressUpdate();
    void DoublePressUpdate();
    void CloseWindow();

    // Kills the child process of that name, once there is one; false when there is none in time.
    bool KillTool(QByteArray const& name,
                  std::chrono::milliseconds limit = std::chrono::seconds(20));

    bool IsRunning() const { return process_.state() == QProcess::Running; }
    // The exit status; none when the program still runs after `limit` or has crashed.
    std::optional<int> WaitForExit(std::chrono::milliseconds limit = std::chrono::seconds(20));
    QByteArray Output() { return process_.readAllStandardOutput(); }
    // What it has written for support so far.
    QByteArray ReadLog() const;

private:
    QString FindWindow(QString const& title);
    QImage Grab();
    void Click(int times);

    QTemporaryDir state_;
    QProcess process_;
    WindowReader reader_;
    QString title_;
    QString window_;
    std::optional<Screen> last_screen_;
};
