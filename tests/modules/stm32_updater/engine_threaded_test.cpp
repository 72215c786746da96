// The engine with its answers from another thread, as from a serial port: the receive queue and the
// semaphore are what the two threads share.
#include <thread>

#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

constexpr unsigned kOtp = 0x1FFF7000;

class ThreadedTest : public UpdaterTest {
protected:
    ThreadedTest() { Rebuild({.real_waits = true}); }
};

// Connected on one thread, updated on another.
TEST_F(ThreadedTest, RunsAWholeUpdate)
{
    uart.AnswerFromAnotherThread();
    Connect();
    auto const image = PatternImage(2 * 2048 + 8);
    auto const otp = PatternImage(32);
    uart.Expect({0x11, 0xEE}).Answer({0x79});
    uart.Expect({0x1F, 0xFF, 0x70, 0x00, 0x90}).Answer({0x79});
    uart.Expect({0x1F, 0xE0}).Answer({0x79}).Answer(otp);
    EXPECT_EQ(updater->GetOtp(kOtp, 32), otp);
    ExpectGetVersion();
    ExpectExtendedErase({0x00, 0x02, 0x00, 0x00, 0x00, 0x01, 0x00, 0x02, 0x01});
    for (uint32_t offset = 0; offset < 2 * 2048; offset += 256) {
        ExpectWrite(AddressBytes(0x08000000 + offset), Slice(image, offset, 256));
    }
    ExpectWrite({0x08, 0x00, 0x10, 0x00, 0x18}, TrailerOf(image));

    std::jthread([&] { EXPECT_TRUE(Update(image)); }).join();

    EXPECT_SCRIPT_DONE();
    updater->DisconnectDevice();
}

TEST_F(ThreadedTest, SurvivesAUnitThatNeverStopsTalking)
{
    Connect();
    std::atomic<bool> stop{false};
    std::jthread const talker([&] {
        while (!stop) {
            uart.Receive({0x79});
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 20; ++i) {
        uart.Expect({0x11, 0xEE});
        uart.Expect({0x1F, 0xFF, 0x70, 0x00, 0x90});
        uart.Expect({0x1F, 0xE0});
        EXPECT_EQ(updater->GetOtp(kOtp, 32), Bytes(32, std::byte{0x79}));
    }
    updater->DisconnectDevice();
    stop = true;
}

TEST(RxQueueThreaded, KeepsTheOrderBetweenTwoThreads)
{
    RxQueue queue;
    constexpr int kCount = 20000;
    std::atomic<int> taken{0};
    std::jthread const producer([&] {
        for (int i = 0; i < kCount; ++i) {
            while (i - taken.load() >= 64) {
                std::this_thread::yield();
            }
            queue.Push(static_cast<std::byte>(i & 0xFF));
        }
    });
    for (int i = 0; i < kCount; ++i) {
        auto value = queue.Pop();
        while (!value) {
            std::this_thread::yield();
            value = queue.Pop();
        }
        ASSERT_EQ(*value, static_cast<std::byte>(i & 0xFF));
        taken.store(i + 1);
    }
    EXPECT_EQ(queue.Pop(), std::nullopt);
}

}  // namespace
}  // namespace stm32_updater::test
