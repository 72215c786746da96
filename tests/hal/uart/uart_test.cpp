// The owner of the serial port, with a real QSerialPort on a pseudo-terminal, on one thread.
#include "hal/uart/uart.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QMetaMethod>
#include <QSerialPort>
#include <QTest>
#include <QThread>
#include <functional>
#include <memory>

#include "modules/stm32_updater/limits.h"
#include "simulator/host/pseudo_terminal.h"
#include "tests/support/collected_record.h"

namespace hal::uart::test {
namespace {

using simulator::PseudoTerminal;
using stm32_updater::kBaudRate;

constexpr int kTimeoutMs = 10000;

QString PathOf(PseudoTerminal const& line)
{
    return QString::fromStdString(line.Path());
}

class UartTest : public ::testing::Test {
protected:
    QSerialPort& Port() { return *uart->findChild<QSerialPort*>(); }

    void CollectBytes()
    {
        uart->onSetRxCallback([this](std::byte value) {
            received += static_cast<char>(value);
            thread_of_callback = QThread::currentThread();
        });
    }

    bool WaitForBytes(size_t size)
    {
        return QTest::qWaitFor([&] { return received.size() >= size; }, kTimeoutMs);
    }

    PseudoTerminal line;
    QSemaphore semaphore{0};
    std::string received;
    QThread* thread_of_callback = nullptr;
    std::unique_ptr<Uart> uart =
        std::make_unique<Uart>(PathOf(line), kBaudRate, &semaphore, nullptr);
};

TEST_F(UartTest, OpensItsPortWithTheGivenSpeedAndTheFramingOfTheBootloader)
{
    ASSERT_NE(uart->findChild<QSerialPort*>(), nullptr);
    EXPECT_TRUE(Port().isOpen());
    EXPECT_EQ(Port().openMode(), QIODevice::ReadWrite);
    EXPECT_EQ(QString::fromUtf8("/dev/") + Port().portName(), PathOf(line));
    EXPECT_EQ(Port().parity(), QSerialPort::EvenParity);
    EXPECT_EQ(Port().dataBits(), QSerialPort::Data8);
    EXPECT_EQ(Port().stopBits(), QSerialPort::OneStop);
    EXPECT_EQ(Port().flowControl(), QSerialPort::NoFlowControl);
    EXPECT_EQ(Port().baudRate(QSerialPort::Input), 460800);
    EXPECT_EQ(Port().baudRate(QSerialPort::Output), 460800);
    EXPECT_EQ(line.Speed(), 460800U);
    PseudoTerminal const other;
    Uart const slow(PathOf(other), 9600, &semaphore, nullptr);
    EXPECT_EQ(other.Speed(), 9600U);
}

TEST_F(UartTest, HandsItsBytesToTheRecordInBothDirections)
{
    PseudoTerminal other;
    CollectedRecord record;
    Uart recorded(PathOf(other), kBaudRate, &semaphore, nullptr, record);
    recorded.onTransmit("\x7F");
    other.Send("\x79\x1F");

    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return record.Bytes(PathOf(other), record::Direction::kIn) == "\x79\x1F"; },
        kTimeoutMs));
    EXPECT_EQ(record.Bytes(PathOf(other), record::Direction::kOut), "\x7F");
    EXPECT_EQ(record.Texts().value(0),
              QStringLiteral("line 1 %1: UART, 460800 baud, 8E1").arg(PathOf(other)));
}

TEST_F(UartTest, PassesReceivedBytesOnInOrderOnItsThreadToTheLatestCallbackOnly)
{
    int reads = 0;
    QObject::connect(&Port(), &QSerialPort::readyRead, [&] { ++reads; });
    line.Send("lost before the first callback");
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return reads > 0 && Port().bytesAvailable() == 0; }, kTimeoutMs));
    std::string first;
    uart->onSetRxCallback([&](std::byte value) { first += static_cast<char>(value); });
    line.Send("a");
    ASSERT_TRUE(QTest::qWaitFor([&] { return !first.empty(); }, kTimeoutMs));
    CollectBytes();
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        bytes += static_cast<char>(i);
    }

    line.Send(bytes);

    ASSERT_TRUE(WaitForBytes(256));
    EXPECT_EQ(received, bytes);
    EXPECT_EQ(first, "a");
    EXPECT_EQ(thread_of_callback, uart->thread());
}

TEST_F(UartTest, CallsNobodyWithoutBytesAndThrowsForBytesWithoutACallback)
{
    uart->onSetRxCallback({});
    EXPECT_NO_THROW(uart->onReadData());
    line.Send("a");
    // Called directly: an exception must not pass through an event loop.
    EXPECT_THROW(Port().waitForReadyRead(kTimeoutMs), std::bad_function_call);
}

TEST_F(UartTest, WritesTheBytesAndReleasesATokenForEachReport)
{
    int reports = 0;
    QObject::connect(&Port(), &QSerialPort::bytesWritten, [&] { ++reports; });

    QByteArray bytes(258, '\x5A');  // the longest that the engine sends while it writes
    bytes.replace(0, 5, QByteArray("\x7F\x00\xFF\x0A\x0D", 5));
    uart->onTransmit(bytes);

    EXPECT_EQ(line.Receive(258), bytes.toStdString());
    ASSERT_TRUE(QTest::qWaitFor([&] { return reports > 0; }, kTimeoutMs));
    EXPECT_EQ(semaphore.available(), reports);
}

TEST_F(UartTest, ReleasesOneTokenForEachReportWhateverItsCount)
{
    uart->onBytesWritten(256);
    EXPECT_EQ(semaphore.available(), 1);
    uart->onBytesWritten(0);
    EXPECT_EQ(semaphore.available(), 2);
}

TEST_F(UartTest, ReleasesNoTokenForAnEmptyWrite)
{
    uart->onTransmit({});
    // The next write is reported; if the empty one had been, there would be two tokens.
    uart->onTransmit("a");
    ASSERT_TRUE(QTest::qWaitFor([&] { return semaphore.available() > 0; }, kTimeoutMs));
    EXPECT_EQ(line.Receive(1), "a");
    EXPECT_EQ(semaphore.available(), 1);
}

TEST_F(UartTest, ClosesItsPortAndReleasesTheCallbackWhenItIsDestroyed)
{
    auto const held = std::make_shared<int>(0);
    uart->onSetRxCallback([held](std::byte) {});
    EXPECT_GT(held.use_count(), 1);
    EXPECT_FALSE(line.WaitForClose(std::chrono::milliseconds(1)));
    uart.reset();
    EXPECT_TRUE(line.WaitForClose());
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(UartTest, HasFourSlotsInThisOrder)
{
    auto const& meta = Uart::staticMetaObject;
    QList<QByteArray> slots_found;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        EXPECT_EQ(meta.method(i).methodType(), QMetaMethod::Slot);
        slots_found.append(meta.method(i).methodSignature());
    }
    EXPECT_EQ(slots_found,
              (QList<QByteArray>{"onReadData()", "onSetRxCallback(hal::uart::RxByte_ISR)",
                                 "onTransmit(QByteArray)", "onBytesWritten(qlonglong)"}));
}

}  // namespace
}  // namespace hal::uart::test
