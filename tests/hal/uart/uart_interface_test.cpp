// The driver interface over signals, without a port: lambdas stand in for the object that owns one.
#include "hal/uart/uart_interface.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <QMetaMethod>
#include <array>
#include <fstream>
#include <future>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace hal::uart::test {
namespace {

using Rate = IUartDriver::Rate;
using Settings = IUartDriver::Settings;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

// Long enough for a thread that could go on to go on.
constexpr milliseconds kMoment{50};

class UartInterfaceTest : public ::testing::Test {
protected:
    // Records every TransmitData, on the thread that emits it.
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
        return std::async(std::launch::async, [this, bytes = std::move(bytes)] {
            transmitting_thread = gettid();
            uart.Transmit(bytes);
        });
    }

    bool WaitForEmission() { return emissions.try_acquire_for(seconds(10)); }

    QSemaphore semaphore{1};
    std::counting_semaphore<> emissions{0};
    std::atomic<pid_t> transmitting_thread{0};
    int tokens_at_emission = -1;
    std::vector<QByteArray> emitted;
    UartInterface uart{&semaphore, nullptr};
};

TEST_F(UartInterfaceTest, ReportsTheSameSetupAndSendsNeitherBreaksNorHighPriorityBytes)
{
    Listen();
    EXPECT_EQ(uart.GetSetup(), (IUartDriver::LineSetup{Rate{4}, Settings{1}}));
    uart.Setup(Rate{1}, Settings{7});
    EXPECT_EQ(uart.GetSetup(), (IUartDriver::LineSetup{Rate{4}, Settings{1}}));
    uart.TransmitBreak();
    std::array<std::byte, 2> const bytes{std::byte{1}, std::byte{2}};
    EXPECT_EQ(uart.TransmitHighPriority(bytes), 0U);
    EXPECT_FALSE(uart.TransmitterActive());
    EXPECT_TRUE(emitted.empty());
    EXPECT_EQ(semaphore.available(), 1);
}

TEST_F(UartInterfaceTest, PassesEverySubscriptionForBytesOn)
{
    std::vector<RxByte_ISR> passed_on;
    QObject::connect(&uart, &UartInterface::SetRxCallback,
                     [&](RxByte_ISR const& callback) { passed_on.push_back(callback); });
    std::byte received{0};

    auto first = uart.SubscribeOnRx([&](std::byte value) { received = value; });
    auto const second = uart.SubscribeOnRx({});
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_TRUE(first.get_deleter());
    first.reset();

    ASSERT_EQ(passed_on.size(), 2U) << "releasing a handle emits nothing";
    ASSERT_TRUE(passed_on[0]);
    passed_on[0](std::byte{0x42});
    EXPECT_EQ(received, std::byte{0x42});
    EXPECT_FALSE(passed_on[1]);
}

TEST_F(UartInterfaceTest, SubscribesToNothingElse)
{
    auto const on_error = uart.SubscribeOnError([](unsigned) {});
    auto const on_break = uart.SubscribeOnBreak([] {});
    auto const on_complete = uart.SubscribeOnTransmitComplete([] {});
    for (auto const* handle : {&on_error, &on_break, &on_complete}) {
        EXPECT_EQ(handle->get(), nullptr);
        EXPECT_EQ(static_cast<bool>(handle->get_deleter()), handle == &on_error);
    }
}

// The empty span, too, waits for a report.
TEST_F(UartInterfaceTest, TransmitBlocksUntilTheBytesAreReportedAsWritten)
{
    Listen();
    for (auto const& bytes : {std::vector{std::byte{0x7F}, std::byte{0x00}, std::byte{0xFF}},
                              std::vector<std::byte>{}}) {
        auto sent = TransmitOnAnotherThread(bytes);
        ASSERT_TRUE(WaitForEmission());
        EXPECT_EQ(tokens_at_emission, 0) << "the token is held while the bytes are emitted";

        EXPECT_EQ(sent.wait_for(kMoment), std::future_status::timeout);
        semaphore.release(1);

        ASSERT_EQ(sent.wait_for(seconds(10)), std::future_status::ready);
        EXPECT_EQ(semaphore.available(), 1) << "for the next Transmit";
    }
    EXPECT_EQ(emitted, (std::vector<QByteArray>{QByteArray("\x7F\x00\xFF", 3), QByteArray()}));
}

// Linux shows the system call in which a thread sleeps. A semaphore's is futex, whose fourth
// argument points to the deadline, if there is one.
TEST_F(UartInterfaceTest, TransmitBlocksWithoutALimit)
{
    Listen();
    auto sent = TransmitOnAnotherThread({std::byte{0x7F}});
    ASSERT_TRUE(WaitForEmission());
    auto const path = "/proc/self/task/" + std::to_string(transmitting_thread) + "/syscall";
    bool shown = false;
    bool without_limit = false;
    for (auto const end = steady_clock::now() + seconds(5);
         !without_limit && steady_clock::now() < end; std::this_thread::yield()) {
        std::ifstream file(path);
        std::string number, address, operation, value, deadline;
        file >> number >> address >> operation >> value >> deadline;
        shown = shown || !number.empty();
        without_limit = number == std::to_string(SYS_futex) && deadline == "0x0";
    }
    semaphore.release(1);
    ASSERT_EQ(sent.wait_for(seconds(10)), std::future_status::ready);
    if (!shown) {
        GTEST_SKIP() << "this kernel does not show system calls";
    }
    EXPECT_TRUE(without_limit);
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

// A port that reports one write in two pieces releases two tokens; the second one stays.
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

TEST_F(UartInterfaceTest, HasBothItsNamesAndTheParentItWasGiven)
{
    EXPECT_EQ(uart.qt_metacast("UartInterface"), &uart);
    EXPECT_EQ(uart.qt_metacast("hal::uart::IUartDriver"), static_cast<IUartDriver*>(&uart));
    EXPECT_EQ(uart.qt_metacast("Uart"), nullptr);
    EXPECT_EQ(qobject_cast<IUartDriver*>(&uart), static_cast<IUartDriver*>(&uart));
    QObject parent;
    EXPECT_EQ((new UartInterface(&semaphore, &parent))->parent(), &parent);
}

TEST_F(UartInterfaceTest, HasTwoSignalsInThisOrder)
{
    auto const& meta = UartInterface::staticMetaObject;
    QList<QByteArray> signals_found;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        EXPECT_EQ(meta.method(i).methodType(), QMetaMethod::Signal);
        signals_found.append(meta.method(i).methodSignature());
    }
    EXPECT_EQ(signals_found, (QList<QByteArray>{"TransmitData(QByteArray)",
                                                "SetRxCallback(hal::uart::RxByte_ISR)"}));
}

}  // namespace
}  // namespace hal::uart::test
