// A serial port that is lost while it is open: the owner of the port on one thread, then both
// halves of the adapter on two. The end of a pseudo-terminal is the hang-up that a pulled cable
// causes.
#include <gtest/gtest.h>

#include <QSerialPort>
#include <QTest>
#include <QThread>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <thread>

#include "hal/uart/uart.h"
#include "hal/uart/uart_interface.h"
#include "modules/stm32_updater/limits.h"
#include "simulator/host/pseudo_terminal.h"

namespace hal::uart::test {
namespace {

constexpr int kLostPortTimeoutMs = 10000;

class LostPort : public ::testing::Test {
protected:
    LostPort()
    {
        QObject::connect(&Port(), &QSerialPort::errorOccurred, [this] { ++errors; });
    }

    QSerialPort& Port() { return *uart.findChild<QSerialPort*>(); }

    void HangUp() { line.reset(); }

    // The event loop is idle, as while nobody sends.
    bool WaitForClose()
    {
        return QTest::qWaitFor([&] { return !Port().isOpen(); }, kLostPortTimeoutMs);
    }

    std::optional<simulator::PseudoTerminal> line{std::in_place};
    QSemaphore semaphore{0};
    int errors = 0;
    Uart uart{QString::fromStdString(line->Path()), stm32_updater::kBaudRate, &semaphore, nullptr};
};

// An open port would report the same error without end.
TEST_F(LostPort, IsClosedAtItsFirstErrorAndReportsNoMore)
{
    HangUp();
    ASSERT_TRUE(WaitForClose());
    EXPECT_FALSE(QTest::qWaitFor([&] { return errors > 1; }, 100));
    EXPECT_EQ(semaphore.available(), 0) << "no sender was waiting";
}

// Qt 6.8 is silent about the end of a line; older ones are made so.
TEST_F(LostPort, IsNoticedWhenItReportsNothing)
{
    uart.onTransmit({});
    Port().blockSignals(true);
    HangUp();
    ASSERT_TRUE(WaitForClose());
    EXPECT_EQ(semaphore.available(), 1);
}

// An empty write is never reported, so its sender is certainly waiting.
TEST_F(LostPort, WakesTheWaitingSenderOnce)
{
    uart.onTransmit({});
    HangUp();
    ASSERT_TRUE(WaitForClose());
    EXPECT_EQ(semaphore.available(), 1);
}

// Whether the system reports the bytes first or the loss.
TEST_F(LostPort, WakesASenderOnceWhoseBytesWereOnTheirWay)
{
    uart.onTransmit("a");
    HangUp();
    ASSERT_TRUE(WaitForClose());
    EXPECT_EQ(semaphore.available(), 1);
}

TEST_F(LostPort, WakesNoSenderWhoseBytesWereReported)
{
    uart.onTransmit("a");
    ASSERT_TRUE(QTest::qWaitFor([&] { return semaphore.available() == 1; }, kLostPortTimeoutMs));
    HangUp();
    ASSERT_TRUE(WaitForClose());
    EXPECT_EQ(semaphore.available(), 1);
}

TEST_F(LostPort, IsClosedByAFailedWrite)
{
    HangUp();
    uart.onTransmit("a");
    EXPECT_FALSE(Port().isOpen());
    EXPECT_EQ(semaphore.available(), 1);
}

TEST_F(LostPort, TakesFurtherBytesWithoutSendingThem)
{
    HangUp();
    ASSERT_TRUE(WaitForClose());
    for (int i = 1; i <= 3; ++i) {
        uart.onTransmit("a");
        EXPECT_EQ(semaphore.available(), i);
    }
}

TEST_F(LostPort, IsAssumedOnlyForErrorsOfThePortItself)
{
    using Error = QSerialPort::SerialPortError;
    struct {
        Error error;
        bool lost;
    } constexpr kRows[] = {
        {Error::NoError, false},        {Error::TimeoutError, false},
        {Error::NotOpenError, false},   {Error::UnsupportedOperationError, false},
        {Error::OpenError, false},      {Error::ReadError, true},
        {Error::WriteError, true},      {Error::ResourceError, true},
        {Error::PermissionError, true}, {Error::DeviceNotFoundError, true},
        {Error::UnknownError, true},
    };
    for (auto const& [error, lost] : kRows) {
        simulator::PseudoTerminal const terminal;
        Uart owner(QString::fromStdString(terminal.Path()), stm32_updater::kBaudRate, &semaphore,
                   nullptr);
        auto* const port = owner.findChild<QSerialPort*>();
        Q_EMIT port->errorOccurred(error);
        EXPECT_EQ(port->isOpen(), !lost) << error;
    }
}

// ---- Both halves ----

// The port's half on a thread of its own, as the backend has it.
class PortThread {
public:
    PortThread(simulator::PseudoTerminal const& line, UartInterface& adapter, QSemaphore& semaphore)
    {
        auto* const uart = new Uart(QString::fromStdString(line.Path()), stm32_updater::kBaudRate,
                                    &semaphore, nullptr);
        uart->moveToThread(&thread_);
        QObject::connect(&adapter, &UartInterface::TransmitData, uart, &Uart::onTransmit);
        QObject::connect(&thread_, &QThread::finished, uart, &QObject::deleteLater);
        thread_.start();
    }

    ~PortThread()
    {
        thread_.quit();
        thread_.wait();
    }

private:
    QThread thread_;
};

// Each round hangs up somewhere in a row of sends that nothing else would end.
TEST(LostPortInUse, LetsEverySendReturnWheneverItHangsUp)
{
    QSemaphore semaphore{1};
    UartInterface adapter{&semaphore, nullptr};
    for (int round = 0; round < 100; ++round) {
        std::optional<simulator::PseudoTerminal> line(std::in_place);
        PortThread const thread(*line, adapter, semaphore);
        std::atomic<int> sent{0};
        auto sender = std::async(std::launch::async, [&] {
            for (; sent < 40; ++sent) {
                adapter.Transmit(std::as_bytes(std::span(std::string_view("abc"))));
            }
        });
        while (sent < round % 20) {
            std::this_thread::yield();
        }
        line.reset();
        ASSERT_EQ(sender.wait_for(std::chrono::seconds(10)), std::future_status::ready) << round;
        EXPECT_EQ(semaphore.available(), 1) << round;
    }
}

TEST(LostPortInUse, LeavesOneTokenForTheNextSession)
{
    QSemaphore semaphore{1};
    UartInterface adapter{&semaphore, nullptr};
    for (int const tokens : {1, 2, 7}) {
        semaphore.release(tokens - semaphore.available());
        adapter.DropExtraTokens();
        EXPECT_EQ(semaphore.available(), 1) << tokens;
    }
}

}  // namespace
}  // namespace hal::uart::test
