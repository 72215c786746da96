// A port that cannot be opened ends the process, whatever else the process is doing. Every case
// runs in a new child process.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QThread>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "hal/uart/uart.h"
#include "modules/stm32_updater/limits.h"
#include "simulator/host/pseudo_terminal.h"

namespace hal::uart::test {
namespace {

void Open(std::string const& path)
{
    QSemaphore semaphore(1);
    Uart const uart(QString::fromStdString(path), stm32_updater::kBaudRate, &semaphore, nullptr,
                    record::NoSink(), [](QString const& reason) {
                        std::fprintf(stderr, "Reason: %s.\n", reason.toLocal8Bit().constData());
                    });
}

// As in the application: the main thread runs its event loop, the worker opens the port. Whatever
// std::exit() would run could find the main thread at work, so nothing of it may run.
void OpenMissingPortOnAWorkerThread()
{
    std::atexit([] { std::_Exit(3); });
    QThread worker;
    QObject opener;
    opener.moveToThread(&worker);
    QObject::connect(&worker, &QThread::started, &opener, [] { Open("/dev/no-such-port"); });
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
                "Reason: [^.]+[.]\n.*Failed to open port .*hostname");
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

TEST_F(OpenFailureTest, EndsTheProcessFromAWorkerThreadWithoutRunningExitHandlers)
{
    EXPECT_EXIT(OpenMissingPortOnAWorkerThread(), ::testing::ExitedWithCode(1),
                "Failed to open port .*no-such-port");
}

}  // namespace
}  // namespace hal::uart::test
