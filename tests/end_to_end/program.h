// The staged program as a child process on this process's screen: its window is read through the X
// server and operated with xdotool, as a person would.
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
    using Condition = std::function<bool(Screen const&)>;
    using Limit = std::chrono::milliseconds;
    static constexpr Limit kLimit{20000};

    // Starts it. What it leaves behind goes to `directory`, or to a temporary one if that is empty:
    // its log, and what it prints in updater.txt. Throws std::runtime_error when it does not start.
    Program(TestBundle const& bundle, QProcessEnvironment const& environment,
            QString const& directory = {});
    ~Program();  // ends it

    // Waits until the window shows what `condition` describes; false after `limit`, and at once
    // when the program ends or its window is closed.
    bool WaitFor(Condition const& condition, Limit limit = kLimit);
    bool WaitForWindow(QString const& title, Limit limit = kLimit);
    bool WaitForWindowToGo(Limit limit = kLimit);
    bool HasWindow() const { return !FindWindow().isEmpty(); }

    // The screen as it is now; none while it shows none of the window's states.
    std::optional<Screen> Look();
    // The last one that could be read, for a failure message.
    std::optional<Screen> const& LastScreen() const { return last_screen_; }

    // Returns false when there is no window.
    bool SavePicture(QString const& path) { return Grab().save(path); }

    void PressUpdate() { Click(1); }
    void DoublePressUpdate() { Click(2); }
    void CloseWindow();

    // Kills the child process of that name, once there is one; false when there is none in time.
    bool KillTool(QByteArray const& name, Limit limit = kLimit);

    bool IsRunning() const { return process_.state() == QProcess::Running; }
    // The exit status; none when the program still runs after `limit` or has crashed.
    std::optional<int> WaitForExit(Limit limit = kLimit);
    // How it ended: "exit status 1", or "crashed".
    QString DescribeEnd() const;
    // What it has logged so far.
    QByteArray ReadLog() const;

private:
    QString FindWindow() const;
    QImage Grab();
    void Click(int times);

    QTemporaryDir temporary_;
    QDir directory_;
    QProcess process_;
    WindowReader reader_;
    QString window_;  // its X id, once it was there
    std::optional<Screen> last_screen_;
};

// Polls `condition`, which may look at child processes; false when it is not true within `limit`.
bool WaitUntil(std::function<bool()> const& condition, Program::Limit limit);

// The child process of that name (its first 15 characters), or 0.
pid_t FindChildProcess(qint64 parent, QByteArray const& name);
