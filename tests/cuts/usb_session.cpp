// usb_session TOOL IMAGE: one session of the USB backend on its worker thread, as in the program,
// but in a process of its own: the folder for temporary files belongs to a process, and whatever a
// session leaves behind shows at its end.
//
// Reads commands, one a line: list, which lists devices on the main thread, as detection does, and
// prints "listed N"; connect and update, which call those slots on the worker thread; tool, which
// the worker thread answers with "tool PID" of the download in progress; and close, which ends the
// session as the window's destructor does. Prints each signal of the backend in the words of
// backend_signals.h, each warning, and last what is left, "left nothing" if all is well.

#include <fmt/format.h>
#include <sys/wait.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QProcess>
#include <QThread>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <string>
#include <thread>

#include "modules/stm32_updater/dfu_util_listing.h"
#include "tests/support/backend_signals.h"
#include "tests/support/process_resources.h"
#include "updater/usb_firmware_updater.h"

namespace {

constexpr unsigned kFlash = 0x08000000;
constexpr unsigned kOtp = 0x1FFF7000;
constexpr unsigned long kOtpSize = 1024;
constexpr uint8_t kModel = 1;

// From any thread: the library writes each line as a whole.
void Print(std::string const& line)
{
    fmt::print("{}\n", line);
    std::fflush(stdout);
}

void PrintWarning(QtMsgType, QMessageLogContext const&, QString const& text)
{
    Print("warning: " + text.toStdString());
}

bool HasChildren()
{
    return waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD;
}

// What Qt opens once, for the first thread and the first process, is not a session's.
void UseAThreadAndAProcess()
{
    QThread thread;
    thread.start();
    QObject context;
    context.moveToThread(&thread);
    QMetaObject::invokeMethod(
        &context, [] { QProcess::execute(QStringLiteral("true"), {}); },
        Qt::BlockingQueuedConnection);
    thread.quit();
    thread.wait();
}

// Carries out a command on the backend's thread, without waiting.
void Carry(UsbFirmwareUpdater& backend, std::string const& command)
{
    QMetaObject::invokeMethod(
        &backend,
        [&backend, command] {
            if (command == "connect") {
                backend.onConnectToDevice(QStringLiteral("unit"), {kModel}, true);
            } else if (command == "update") {
                backend.onStartUpdate();
            } else if (command == "tool") {
                Print(fmt::format("tool {}", backend.findChild<QProcess*>()->processId()));
            }
        },
        Qt::QueuedConnection);
}

void RunSession(QString const& tool, QString const& image)
{
    UsbFirmwareUpdater backend(image, tool, kFlash, kOtp, kOtpSize, {}, nullptr);
    NoteSignals(backend, [](QString const& signal) { Print(signal.toStdString()); });
    QThread worker;
    backend.moveToThread(&worker);
    worker.start();
    for (std::string command; std::getline(std::cin, command) && command != "close";) {
        if (command == "list") {
            Print(fmt::format("listed {}", stm32_updater::ListDfuDevices(tool).size()));
        } else {
            Carry(backend, command);
        }
    }
    worker.quit();
    worker.wait();
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    qInstallMessageHandler(PrintWarning);
    auto before = GetProcessResources();
    UseAThreadAndAProcess();
    before.descriptors = GetProcessResources().descriptors;
    RunSession(QCoreApplication::arguments().value(1), QCoreApplication::arguments().value(2));
    // The system lists a thread for a moment after it has been joined.
    QDeadlineTimer const end(5000);
    while (!HoldsNoMore(GetProcessResources(), before) && !end.hasExpired()) {
        std::this_thread::yield();
    }
    auto const after = GetProcessResources();
    bool const is_clean = HoldsNoMore(after, before) && !HasChildren();
    Print(is_clean ? "left nothing"
                   : fmt::format("before and after: {} and {} descriptors, {} and {} threads; {}",
                                 before.descriptors, after.descriptors, before.threads,
                                 after.threads, HasChildren() ? "children" : "no children"));
    return 0;
}
