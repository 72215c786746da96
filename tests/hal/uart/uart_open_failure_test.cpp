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

using stm32_updater::kBaudRate;

constexpr char kExpectedText[] = "Failed to open port .*no-such-port";

void OpenMissingPort()
{
    QSemaphore semaphore(1);
    Uart const uart(QString::fromUtf8("/dev/no-such-port"), kBaudRate, &semaphore, nullptr);
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
    EXPECT_EXIT(OpenMissingPort(), ::testing::ExitedWithCode(1), kExpectedText);
}

TEST_F(OpenFailureTest, EndsTheProcessWhenThePathIsNotASerialPort)
{
    EXPECT_EXIT(
        {
            QSemaphore semaphore(1);
            Uart const uart(QString::fromUtf8("/etc/hostname"), kBaudRate, &semaphore, nullptr);
        },
        ::testing::ExitedWithCode(1), "Failed to open port .*hostname");
}

TEST_F(OpenFailureTest, EndsTheProcessWhenThePortIsAlreadyTaken)
{
    EXPECT_EXIT(
        {
            simulator::PseudoTerminal const line;
            auto const path = QString::fromStdString(line.Path());
            QSemaphore semaphore(1);
            Uart const first(path, kBaudRate, &semaphore, nullptr);
            Uart const second(path, kBaudRate, &semaphore, nullptr);
        },
        ::testing::ExitedWithCode(1), "Failed to open port .*pts");
}

TEST_F(OpenFailureTest, EndsTheProcessEveryTimeBesideABusyThreadAndFromAWorkerThread)
{
    for (auto* const open : {OpenMissingPortBesideABusyThread, OpenMissingPortOnAWorkerThread}) {
        for (int i = 0; i < 20; ++i) {
            EXPECT_EXIT(open(), ::testing::ExitedWithCode(1), kExpectedText);
        }
    }
}

}  // namespace
}  // namespace hal::uart::test
