// The driver interface over signals, without a port: a receiver made of lambdas stands in for the
// object that owns one.
#include "hal/uart/uart_interface.h"

#include <gtest/gtest.h>

#include <QMetaMethod>
#include <array>
#include <future>
#include <semaphore>
#include <utility>
#include <vector>

namespace hal::uart::test {
namespace {

using Rate = IUartDriver::Rate;
using Settings = IUartDriver::Settings;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Long enough for a thread that could go on to go on.
constexpr milliseconds kMoment{50};

class UartInterfaceTest : public ::testing::Test {
protected:
    // Notes every TransmitData, on the thread that emits it.
    void Listen()
    {
        QObject::connect(
            &uart, &UartInterface::TransmitData, &uart,
            [this](QByteArray const& data) {
                tokens_at_emission = semaphore.available();
                emitted.push_back(data);
                emissions.release();
            },
            Qt::DirectConnection);
    }

    std::future<void> TransmitOnAnotherThread(std::vector<std::byte> bytes)
    {
        return std::async(std::launch::async,
                          [this, bytes = std::move(bytes)] { uart.Transmit(bytes); });
    }

    bool WaitForEmission() { return emissions.try_acquire_for(seconds(10)); }

    QSemaphore semaphore{1};
    std::counting_semaphore<> emissions{0};
    int tokens_at_emission = -1;
    std::vector<QByteArray> emitted;
    UartInterface uart{&semaphore, nullptr};
};

TEST_F(UartInterfaceTest, ReportsTheSameSetupWhateverWasAskedFor)
{
    EXPECT_EQ(uart.GetSetup(), (IUartDriver::LineSetup{Rate{4}, Settings{1}}));
    uart.Setup(Rate{1}, Settings{7});
    EXPECT_EQ(uart.GetSetup(), (IUartDriver::LineSetup{Rate{4}, Settings{1}}));
}

TEST_F(UartInterfaceTest, SetupAndBreakEmitNothingAndTakeNoToken)
{
    Listen();
    uart.Setup(Rate{1}, Settings{1});
    uart.TransmitBreak();
    EXPECT_TRUE(emitted.empty());
    EXPECT_EQ(semaphore.available(), 1);
}

TEST_F(UartInterfaceTest, HighPriorityBytesAreNotSent)
{
    Listen();
    std::array<std::byte, 2> const bytes{std::byte{1}, std::byte{2}};
    EXPECT_EQ(uart.TransmitHighPriority(bytes), 0U);
    EXPECT_TRUE(emitted.empty());
    EXPECT_EQ(semaphore.available(), 1);
}

TEST_F(UartInterfaceTest, TheTransmitterIsNeverActive)
{
    EXPECT_FALSE(uart.TransmitterActive());
}

TEST_F(UartInterfaceTest, ASubscriptionForBytesIsPassedOnAndItsHandleOwnsNothing)
{
    RxByte_ISR passed_on;
    QObject::connect(&uart, &UartInterface::SetRxCallback,
                     [&](RxByte_ISR const& callback) { passed_on = callback; });
    std::byte received{0};

    auto const handle = uart.SubscribeOnRx([&](std::byte value) { received = value; });

    ASSERT_TRUE(passed_on);
    passed_on(std::byte{0x42});
    EXPECT_EQ(received, std::byte{0x42});
    EXPECT_EQ(handle.get(), nullptr);
    EXPECT_TRUE(handle.get_deleter());
}

TEST_F(UartInterfaceTest, ReleasingTheHandleEmitsNothing)
{
    int passed_on = 0;
    QObject::connect(&uart, &UartInterface::SetRxCallback, [&] { ++passed_on; });
    auto handle = uart.SubscribeOnRx([](std::byte) {});
    ASSERT_EQ(passed_on, 1);

    handle.reset();

    EXPECT_EQ(passed_on, 1);
}

TEST_F(UartInterfaceTest, EverySubscriptionForBytesIsPassedOn)
{
    std::vector<RxByte_ISR> passed_on;
    QObject::connect(&uart, &UartInterface::SetRxCallback,
                     [&](RxByte_ISR const& callback) { passed_on.push_back(callback); });
    auto const first = uart.SubscribeOnRx([](std::byte) {});
    auto const second = uart.SubscribeOnRx({});

    ASSERT_EQ(passed_on.size(), 2U);
    EXPECT_TRUE(passed_on[0]);
    EXPECT_FALSE(passed_on[1]);
}

TEST_F(UartInterfaceTest, ASubscriptionForErrorsOwnsNothing)
{
    auto const handle = uart.SubscribeOnError([](unsigned) {});
    EXPECT_EQ(handle.get(), nullptr);
    EXPECT_TRUE(handle.get_deleter());
}

TEST_F(UartInterfaceTest, SubscriptionsForBreaksAndCompletionAreEmpty)
{
    auto const on_break = uart.SubscribeOnBreak([] {});
    EXPECT_EQ(on_break.get(), nullptr);
    EXPECT_FALSE(on_break.get_deleter());
    auto const on_complete = uart.SubscribeOnTransmitComplete([] {});
    EXPECT_EQ(on_complete.get(), nullptr);
    EXPECT_FALSE(on_complete.get_deleter());
}

TEST_F(UartInterfaceTest, TransmitEmitsTheBytesWhileItHoldsTheToken)
{
    Listen();
    auto sent = TransmitOnAnotherThread({std::byte{0x7F}, std::byte{0x00}, std::byte{0xFF}});
    ASSERT_TRUE(WaitForEmission());
    EXPECT_EQ(tokens_at_emission, 0);
    semaphore.release(1);

    ASSERT_EQ(sent.wait_for(seconds(10)), std::future_status::ready);

    EXPECT_EQ(emitted, std::vector<QByteArray>{QByteArray("\x7F\x00\xFF", 3)});
    EXPECT_EQ(semaphore.available(), 1);
}

TEST_F(UartInterfaceTest, TransmitBlocksUntilTheBytesAreReportedAsWritten)
{
    Listen();
    auto sent = TransmitOnAnotherThread({std::byte{0x7F}});
    ASSERT_TRUE(WaitForEmission());

    EXPECT_EQ(sent.wait_for(kMoment), std::future_status::timeout);
    semaphore.release(1);

    EXPECT_EQ(sent.wait_for(seconds(10)), std::future_status::ready);
}

TEST_F(UartInterfaceTest, TransmitEmitsNothingBeforeItHasTheToken)
{
    Listen();
    semaphore.acquire(1);
    auto sent = TransmitOnAnotherThread({std::byte{0x7F}});

    EXPECT_EQ(sent.wait_for(kMoment), std::future_status::timeout);
    EXPECT_FALSE(emissions.try_acquire());
    semaphore.release(1);
    EXPECT_TRUE(WaitForEmission());
    semaphore.release(1);

    EXPECT_EQ(sent.wait_for(seconds(10)), std::future_status::ready);
}

TEST_F(UartInterfaceTest, AnEmptyTransmitWaitsJustTheSame)
{
    Listen();
    auto sent = TransmitOnAnotherThread({});
    ASSERT_TRUE(WaitForEmission());

    EXPECT_EQ(sent.wait_for(kMoment), std::future_status::timeout);
    semaphore.release(1);

    ASSERT_EQ(sent.wait_for(seconds(10)), std::future_status::ready);
    EXPECT_EQ(emitted, std::vector<QByteArray>{QByteArray()});
    EXPECT_EQ(semaphore.available(), 1);
}

TEST_F(UartInterfaceTest, EveryTransmitLeavesOneTokenForTheNext)
{
    QObject::connect(
        &uart, &UartInterface::TransmitData, &uart, [this] { semaphore.release(1); },
        Qt::DirectConnection);
    std::vector<std::byte> const bytes(256);
    for (int i = 0; i < 10; ++i) {
        uart.Transmit(bytes);
        ASSERT_EQ(semaphore.available(), 1);
    }
}

// A port that reports one write in two pieces gives two tokens; the second one stays.
TEST_F(UartInterfaceTest, ASecondReportOfOneWriteLetsTheNextTransmitReturnEarly)
{
    int reports = 2;
    QObject::connect(
        &uart, &UartInterface::TransmitData, &uart,
        [&] { semaphore.release(std::exchange(reports, 0)); }, Qt::DirectConnection);
    std::vector<std::byte> const bytes(4);
    uart.Transmit(bytes);
    EXPECT_EQ(semaphore.available(), 2);

    uart.Transmit(bytes);  // nobody reports this one

    EXPECT_EQ(semaphore.available(), 1);
}

TEST_F(UartInterfaceTest, AnswersToBothItsNamesAsAMetaObject)
{
    EXPECT_EQ(uart.qt_metacast("UartInterface"), &uart);
    EXPECT_EQ(uart.qt_metacast("hal::uart::IUartDriver"), static_cast<IUartDriver*>(&uart));
    EXPECT_EQ(uart.qt_metacast("Uart"), nullptr);
    EXPECT_EQ(qobject_cast<IUartDriver*>(&uart), static_cast<IUartDriver*>(&uart));
}

TEST_F(UartInterfaceTest, HasTwoSignalsInThisOrder)
{
    auto const& meta = UartInterface::staticMetaObject;
    ASSERT_EQ(meta.methodCount() - meta.methodOffset(), 2);
    auto const first = meta.method(meta.methodOffset());
    EXPECT_EQ(first.methodSignature(), "TransmitData(QByteArray)");
    EXPECT_EQ(first.methodType(), QMetaMethod::Signal);
    auto const second = meta.method(meta.methodOffset() + 1);
    EXPECT_EQ(second.methodSignature(), "SetRxCallback(hal::uart::RxByte_ISR)");
    EXPECT_EQ(second.methodType(), QMetaMethod::Signal);
}

TEST_F(UartInterfaceTest, IsOwnedByItsParent)
{
    QObject parent;
    auto* const child = new UartInterface(&semaphore, &parent);
    EXPECT_EQ(child->parent(), &parent);
}

}  // namespace
}  // namespace hal::uart::test
