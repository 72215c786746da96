// Both halves of the adapter as the application connects them: the interface on this thread, the
// port on a thread of its own, and a pseudo-terminal between the port and the test.
#include <gtest/gtest.h>

#include <QThread>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>

#include "hal/uart/uart.h"
#include "hal/uart/uart_interface.h"
#include "modules/stm32_updater/limits.h"
#include "simulator/host/pseudo_terminal.h"

namespace hal::uart::test {
namespace {

using std::chrono::seconds;

// Hands bytes from the port's thread to the test's thread.
class Inbox {
public:
    RxByte_ISR Callback()
    {
        return [this](std::byte value) {
            std::lock_guard const lock(mutex_);
            bytes_ += static_cast<char>(value);
            thread_ = QThread::currentThread();
            changed_.notify_all();
        };
    }

    // The next `size` bytes, or those that came within ten seconds.
    std::string Take(size_t size)
    {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, seconds(10), [&] { return bytes_.size() >= size; });
        return std::exchange(bytes_, {});
    }

    QThread* Thread()
    {
        std::lock_guard const lock(mutex_);
        return thread_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string bytes_;
    QThread* thread_ = nullptr;
};

class UartThreadedTest : public ::testing::Test {
protected:
    UartThreadedTest()
    {
        auto* const uart = new Uart(QString::fromStdString(line.Path()), stm32_updater::kBaudRate,
                                    &semaphore, nullptr);
        uart->moveToThread(&thread);
        QObject::connect(&adapter, &UartInterface::TransmitData, uart, &Uart::onTransmit);
        QObject::connect(&adapter, &UartInterface::SetRxCallback, uart, &Uart::onSetRxCallback);
        QObject::connect(&thread, &QThread::finished, uart, &QObject::deleteLater);
        thread.start();
    }

    ~UartThreadedTest() override { Stop(); }

    void Stop()
    {
        thread.quit();
        EXPECT_TRUE(thread.wait(10000));
    }

    void Transmit(std::string_view bytes) { adapter.Transmit(std::as_bytes(std::span(bytes))); }

    simulator::PseudoTerminal line;
    QSemaphore semaphore{1};
    Inbox inbox;
    Inbox second_inbox;
    UartInterface adapter{&semaphore, nullptr};
    QThread thread;
};

TEST_F(UartThreadedTest, KeepsTheOrderOfManyTransmitsAndClosesThePortWhenItsThreadEnds)
{
    std::string expected;
    for (int i = 0; i < 200; ++i) {
        auto const piece = std::to_string(i) + std::string("\x7F\x00\xFF", 3);
        Transmit(piece);
        EXPECT_EQ(semaphore.available(), 1);
        expected += piece;
    }
    EXPECT_EQ(line.Receive(expected.size()), expected);

    Stop();
    EXPECT_TRUE(line.WaitForClose());
}

TEST_F(UartThreadedTest, PassesReceivedBytesOnOnThePortsThreadUntilTheNextSubscription)
{
    auto subscription = adapter.SubscribeOnRx(inbox.Callback());
    subscription.reset();  // ends nothing
    Transmit("x");         // queued behind the subscription, so that is in force when this returns
    line.Send("hello");
    EXPECT_EQ(inbox.Take(5), "hello");
    EXPECT_EQ(inbox.Thread(), &thread);

    subscription = adapter.SubscribeOnRx(second_inbox.Callback());
    Transmit("y");
    line.Send("b");
    EXPECT_EQ(second_inbox.Take(1), "b");
}

TEST_F(UartThreadedTest, CarriesQuestionsAndAnswersInTurn)
{
    auto const subscription = adapter.SubscribeOnRx(inbox.Callback());
    auto unit = std::async(std::launch::async, [this] {
        for (int i = 0; i < 100; ++i) {
            line.Send(line.Receive(2));
        }
    });
    for (int i = 0; i < 100; ++i) {
        auto const question = std::to_string(10 + i % 90);
        Transmit(question);
        ASSERT_EQ(inbox.Take(2), question);
    }
    EXPECT_EQ(unit.wait_for(seconds(10)), std::future_status::ready);
}

}  // namespace
}  // namespace hal::uart::test
