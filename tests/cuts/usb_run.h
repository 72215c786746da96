// The parts of the USB matrix: a session in a process of its own, what its signals mean for the
// window, many runs side by side, and their table.
#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace cuts {

// How a run ended.
struct UsbEnd {
    std::string result;   // the last status: "listed 1", "Connected", "finished true", ...
    std::string window;   // the button's text, and the bar's if it is an error
    std::string problem;  // empty unless something is wrong
};

// A condition that did not come true in time; the text says which.
class UsbTimeout : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The program usb_session. Not thread-safe; each run has its own.
class UsbSession {
public:
    // Runs the backend with that tool. Its temporary files go to a folder of its own.
    UsbSession(QString const& tool, QString const& image,
               QProcessEnvironment environment = QProcessEnvironment::systemEnvironment());
    ~UsbSession();  // ends it

    void Send(QByteArray const& command);

    // Waits for the next line that begins like that and returns it. Throws UsbTimeout.
    QString WaitFor(QString const& beginning);

    // Waits for the end of a listing, of a connect or of an update. Throws UsbTimeout.
    void WaitForStatus();

    // Waits until `condition` holds. Throws UsbTimeout with `what`.
    void WaitUntil(std::function<bool()> const& condition, char const* what);

    // The process of the download in progress; 0 without one. Proves that the worker thread
    // answers.
    pid_t AskForTool();

    // Whether the backend has reported the end of an update.
    bool IsFinished() const;

    // Whether the process goes on for a while after Send("close").
    bool StaysAlive();

    // Closes the session and waits for its end, unless Send() has already closed it. Throws
    // UsbTimeout.
    UsbEnd Close();

private:
    void ReadLines(int timeout_ms);
    QString FindLine(std::function<bool(QString const& line)> const& is_wanted, char const* what);

    QTemporaryDir temporary_;
    QProcess process_;
    QStringList lines_;        // all, in order
    qsizetype looked_at_ = 0;  // by FindLine()
};

// 'T' for a process that is stopped; '-' for one that is gone.
char GetProcessState(pid_t process);

// Most of the runs wait.
inline constexpr size_t kUsbRunsAtOnce = 40;

// Compares each run with what is expected of it, and makes the table: a row for each kind of run
// and each end.
class UsbTable {
public:
    void Add(std::string const& when, std::string const& event, std::string const& where,
             UsbEnd const& end, UsbEnd const& expected);

    // Whether it is the table of that name in docs/cut-matrix.md, if this is a long run.
    testing::AssertionResult IsInDocument(std::string const& name) const;

private:
    std::vector<std::pair<std::vector<std::string>, int>> rows_;  // and the number of cases
};

// What the window shows after a failure, behind the button's text.
inline constexpr char kUsbError[] =
    ", Error connecting to device \u2014 Disconnect device and repeat step 1-3";

}  // namespace cuts
