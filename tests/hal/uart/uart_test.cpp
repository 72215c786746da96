// The owner of the serial port, with a real QSerialPort on a pty, on one thread.
#include "hal/uart/uart.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QMetaMethod>
#include <QSerialPort>
#include <QTest>
#include <QThread>
#include <functional>
#include <memory>

#include "tests/hal/uart/pseudo_terminal.h"

namespace hal::uart::test {
namespace {

constexpr int kTimeoutMs = 10000;

class UartTest : public ::testing::Test {
protected:
    QSerialPort& Port() { return *uart->findChild<QSerialPort*>(); }

    void CollectBytes()
    {
        uart->onSetRxCallback([this](std::byte value) {
            received.append(static_cast<char>(value));
            thread_of_callback = QThread::currentThread();
        });
    }

    bool WaitForBytes(qsizetype size)
    {
        return QTest::qWaitFor([&] { return received.size() >= size; }, kTimeoutMs);
    }

    PseudoTerminal line;
    QSemaphore semaphore{0};
    QByteArray received;
    QThread* thread_of_callback = nullptr;
    std::unique_ptr<Uart> uart = std::make_unique<Uart>(line.Path(), 460800, &semaphore, nullptr);
};

TEST_F(UartTest, OpensItsPortWithTheFramingOfTheBootloader)
{
    ASSERT_NE(uart->findChild<QSerialPort*>(), nullptr);
    EXPECT_TRUE(Port().isOpen());
    EXPECT_EQ(Port().openMode(), QIODevice::ReadWrite);
    EXPECT_EQ(QString::fromUtf8("/dev/") + Port().portName(), line.Path());
    EXPECT_EQ(Port().parity(), QSerialPort::EvenParity);
    EXPECT_EQ(Port().dataBits(), QSerialPort::Data8);
    EXPECT_EQ(Port().stopBits(), QSerialPort::OneStop);
    EXPECT_EQ(Port().flowControl(), QSerialPort::NoFlowControl);
    EXPECT_EQ(Port().baudRate(QSerialPort::Input), 460800);
    EXPECT_EQ(Port().baudRate(QSerialPort::Output), 460800);
}

TEST_F(UartTest, OpensItsPortAtTheGivenSpeed)
{
    PseudoTerminal other;
    Uart const slow(other.Path(), 9600, &semaphore, nullptr);
    EXPECT_EQ(slow.findChild<QSerialPort*>()->baudRate(), 9600);
}

TEST_F(UartTest, HandsReceivedBytesOverInOrderOnItsThread)
{
    CollectBytes();
    QByteArray bytes;
    for (int i = 0; i < 256; ++i) {
        bytes.append(static_cast<char>(i));
    }

    line.Send(bytes);

    ASSERT_TRUE(WaitForBytes(256));
    EXPECT_EQ(received, bytes);
    EXPECT_EQ(thread_of_callback, uart->thread());
}

TEST_F(UartTest, HandsOverBytesOfSeveralReads)
{
    CollectBytes();
    for (char const* piece : {"one", "two", "three"}) {
        auto const size = received.size() + static_cast<qsizetype>(std::strlen(piece));
        line.Send(piece);
        ASSERT_TRUE(WaitForBytes(size));
    }
    EXPECT_EQ(received, "onetwothree");
}

TEST_F(UartTest, ThrowsBytesAwayThatCameBeforeTheFirstCallback)
{
    int reads = 0;
    QObject::connect(&Port(), &QSerialPort::readyRead, [&] { ++reads; });
    line.Send("lost");
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return reads > 0 && Port().bytesAvailable() == 0; }, kTimeoutMs));
    CollectBytes();

    line.Send("kept");

    ASSERT_TRUE(WaitForBytes(4));
    EXPECT_EQ(received, "kept");
}

TEST_F(UartTest, GivesBytesToTheLatestCallbackOnly)
{
    QByteArray first;
    uart->onSetRxCallback([&](std::byte value) { first.append(static_cast<char>(value)); });
    line.Send("a");
    ASSERT_TRUE(QTest::qWaitFor([&] { return !first.isEmpty(); }, kTimeoutMs));
    CollectBytes();

    line.Send("b");

    ASSERT_TRUE(WaitForBytes(1));
    EXPECT_EQ(first, "a");
    EXPECT_EQ(received, "b");
}

TEST_F(UartTest, ThrowsWhenTheCallbackIsEmpty)
{
    uart->onSetRxCallback({});
    line.Send("a");
    // Asked for directly: an exception must not pass through an event loop.
    EXPECT_THROW(Port().waitForReadyRead(kTimeoutMs), std::bad_function_call);
}

TEST_F(UartTest, ReadingNothingCallsNobody)
{
    CollectBytes();
    uart->onReadData();
    EXPECT_TRUE(received.isEmpty());
}

TEST_F(UartTest, WritesWhatItIsHandedAndReportsItOnce)
{
    int reports = 0;
    QObject::connect(&Port(), &QSerialPort::bytesWritten, [&] { ++reports; });

    uart->onTransmit(QByteArray("\x7F\x00\xFF\x0A\x0D", 5));

    EXPECT_EQ(line.Receive(5), QByteArray("\x7F\x00\xFF\x0A\x0D", 5));
    ASSERT_TRUE(QTest::qWaitFor([&] { return reports > 0; }, kTimeoutMs));
    EXPECT_EQ(semaphore.available(), reports);
}

TEST_F(UartTest, WritesABlockOfTheLargestSize)
{
    QByteArray const block(258, '\x5A');
    uart->onTransmit(block);
    EXPECT_EQ(line.Receive(258), block);
    EXPECT_TRUE(QTest::qWaitFor([&] { return semaphore.available() > 0; }, kTimeoutMs));
}

TEST_F(UartTest, ReleasesOneTokenForEachReportWhateverItsCount)
{
    uart->onBytesWritten(256);
    EXPECT_EQ(semaphore.available(), 1);
    uart->onBytesWritten(0);
    EXPECT_EQ(semaphore.available(), 2);
}

TEST_F(UartTest, WritingNothingReleasesNoToken)
{
    uart->onTransmit({});
    // What is written next is reported; had the empty write been, there would be two tokens.
    uart->onTransmit("a");
    ASSERT_TRUE(QTest::qWaitFor([&] { return semaphore.available() > 0; }, kTimeoutMs));
    EXPECT_EQ(line.Receive(1), "a");
    EXPECT_EQ(semaphore.available(), 1);
}

TEST_F(UartTest, ClosesItsPortWhenItIsDestroyed)
{
    EXPECT_FALSE(line.WaitForClose(std::chrono::milliseconds(1)));
    uart.reset();
    EXPECT_TRUE(line.WaitForClose());
}

TEST_F(UartTest, LetsGoOfTheCallbackWhenItIsDestroyed)
{
    auto const held = std::make_shared<int>(0);
    uart->onSetRxCallback([held](std::byte) {});
    EXPECT_GT(held.use_count(), 1);
    uart.reset();
    EXPECT_EQ(held.use_count(), 1);
}

// The cable is pulled: no token is given for what can no longer be written, and nothing is thrown.
TEST_F(UartTest, ReportsNothingOnceTheLineIsGone)
{
    auto gone = std::make_unique<PseudoTerminal>();
    Uart lonely(gone->Path(), 460800, &semaphore, nullptr);
    gone.reset();

    lonely.onTransmit("a");

    EXPECT_FALSE(QTest::qWaitFor([&] { return semaphore.available() > 0; }, 100));
}

TEST_F(UartTest, HasFourSlotsInThisOrder)
{
    auto const& meta = Uart::staticMetaObject;
    QList<QByteArray> names;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        EXPECT_EQ(meta.method(i).methodType(), QMetaMethod::Slot);
        names.append(meta.method(i).name());
    }
    ASSERT_EQ(names,
              (QList<QByteArray>{"onReadData", "onSetRxCallback", "onTransmit", "onBytesWritten"}));
    int const first = meta.methodOffset();
    EXPECT_EQ(meta.method(first).parameterCount(), 0);
    EXPECT_EQ(meta.method(first + 1).parameterMetaType(0), QMetaType::fromType<RxByte_ISR>());
    EXPECT_EQ(meta.method(first + 2).parameterMetaType(0), QMetaType::fromType<QByteArray>());
    EXPECT_EQ(meta.method(first + 3).parameterMetaType(0), QMetaType::fromType<qint64>());
}

}  // namespace
}  // namespace hal::uart::test
