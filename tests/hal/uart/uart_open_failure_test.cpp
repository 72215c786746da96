// A port that cannot be opened ends the process, whatever else the process is doing. Every case
// runs in a new child process.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QThread>
#include <QTimer>
#include <atomic>
#include <memory>
#include <thread>

#include "hal/uart/uart.h"
#include "modules/stm32_updater/limits.h"
#include "simulator/host/pseudo_terminal.h"

namespace hal::uart::test {
namespace {

void Open(std::string const& path)
{
    QSemaphore semaphore(1);
    Uart const uart(QString::fromStdString(path), stm32_updater::kBaudRate, &semaphore, nullptr);
}

void OpenMissingPort()
{
    Open("/dev/no-such-port");
}

// Keeps the heap and the event system of Qt busy until the process ends.
void KeepBusy(std::atomic<bool>& started)
{
    QByteArray text;
    for (int i = 0;; ++i) {
        text = QByteArray::number(i) + text.left(100);
        QObject sender;
        QObject::connect(&sender, &QObject::objectNameChanged,
                         [&](auto const&) { started = true; });
        sender.setObjectName(QString::fromUtf8(text));
    }
}

void OpenMissingPortBesideABusyThread()
{
    std::atomic<bool> started{false};
    std::thread busy([&] { KeepBusy(started); });
    while (!started) {
        std::this_thread::yield();
    }
    OpenMissingPort();
    busy.join();  // not reached
}

// As in the application: the main thread runs its event loop, the worker opens the port.
void OpenMissingPortOnAWorkerThread()
{
    QThread worker;
    QObject opener;
    opener.moveToThread(&worker);
    QObject::connect(&worker, &QThread::started, &opener, [] { OpenMissingPort(); });
    QTimer ticks;
    QObject::connect(&ticks, &QTimer::timeout, [] { QString::number(1); });
    ticks.start(0);
    worker.start();
    QCoreApplication::exec();
}

class OpenFailureTest : public ::testing::Test {
protected:
    OpenFailureTest() { ::testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
};

TEST_F(OpenFailureTest, EndsTheProcessWithStatusOneAndNamesThePort)
{
    EXPECT_EXIT(Open("/etc/hostname"), ::testing::ExitedWithCode(1),
                "Failed to open port .*hostname");
    EXPECT_EXIT(
        {
            simulator::PseudoTerminal const line;
            QSemaphore semaphore(1);
            Uart const first(QString::fromStdString(line.Path()), stm32_updater::kBaudRate,
                             &semaphore, nullptr);
            Open(line.Path());
        },
        ::testing::ExitedWithCode(1), "Failed to open port .*pts");
}

TEST_F(OpenFailureTest, EndsTheProcessEveryTimeBesideABusyThreadAndFromAWorkerThread)
{
    for (auto* const open : {OpenMissingPortBesideABusyThread, OpenMissingPortOnAWorkerThread}) {
        for (int i = 0; i < 20; ++i) {
            EXPECT_EXIT(open(), ::testing::ExitedWithCode(1), "Failed to open port .*no-such-port");
        }
    }
}

}  // namespace
}  // namespace hal::uart::test
