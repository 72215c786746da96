// The engine with its answers from another thread, as a serial port gives them: what the two
// threads share is the receive queue and the semaphore.
#include <thread>

#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using std::chrono::milliseconds;

constexpr unsigned kOtp = 0x1FFF7000;

class ThreadedTest : public UpdaterTest {
protected:
    Exchange& ExpectRead(std::initializer_list<int> count)
    {
        uart.Expect({0x11, 0xEE}).Answer({0x79});
        uart.Expect({0x1F, 0xFF, 0x70, 0x00, 0x90}).Answer({0x79});
        return uart.Expect(count).Answer({0x79});
    }
};

TEST_F(ThreadedTest, RunsAWholeUpdate)
{
    uart.AnswerFromAnotherThread();
    Connect();
    auto const image = PatternImage(4 * 8192 + 8);
    auto const otp = PatternImage(32);
    ExpectRead({0x1F, 0xE0}).Answer(otp);
    EXPECT_EQ(updater->GetOtp(kOtp, 32), otp);
    ExpectGetVersion();
    uart.Expect({0x44, 0xBB}).Answer({0x79});
    Bytes pages = ToBytes({0x00, 0x10});
    for (int page = 0; page < 17; ++page) {
        pages.push_back(std::byte{0});
        pages.push_back(static_cast<std::byte>(page));
    }
    uart.Expect(WithXor(pages)).Answer({0x79});
    for (size_t offset = 0; offset < 4 * 8192; offset += 256) {
        int const high = static_cast<int>(offset >> 8);
        ExpectWrite({0x08, 0x00, high, 0x00, 0x08 ^ high}, Slice(image, offset, 256));
    }
    auto trailer = Slice(image, 4 * 8192, 4);
    trailer.resize(8, std::byte{0});
    trailer[4] = std::byte{0x05};
    ExpectWrite({0x08, 0x00, 0x80, 0x00, 0x88}, trailer);

    EXPECT_TRUE(Update(image));

    EXPECT_SCRIPT_DONE();
    updater->DisconnectDevice();
}

TEST_F(ThreadedTest, OpensManySessionsOneAfterTheOther)
{
    uart.AnswerFromAnotherThread();
    for (int i = 0; i < 5; ++i) {
        Connect();
        updater->DisconnectDevice();
    }
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

// A list of 64 bytes does not fit into the queue together with its ACKs and its count: a line takes
// its time between them, here after the first 60 bytes.
TEST_F(ThreadedTest, AcceptsAListOf64Bytes)
{
    Bytes first = ToBytes({0x79, 63, 0x31});
    first.resize(60, std::byte{0x63});
    Bytes rest(6, std::byte{0x63});
    rest.push_back(std::byte{0x79});
    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer(first).Answer(rest);
    ExpectGetId();
    uart.AnswerFromAnotherThread(milliseconds(200));

    EXPECT_TRUE(updater->ConnectDevice());
    EXPECT_SCRIPT_DONE();
}

// 600 ms between the bytes make more than the second that each single byte may take.
TEST_F(ThreadedTest, GivesEveryByteATimeLimitOfItsOwn)
{
    Connect();
    ExpectRead({0x02, 0xFD}).Answer({0x01}).Answer({0x02}).Answer({0x03});
    uart.AnswerFromAnotherThread(milliseconds(600));

    EXPECT_EQ(updater->GetOtp(kOtp, 3), ToBytes({0x01, 0x02, 0x03}));
}

TEST_F(ThreadedTest, AnotherThreadCanBeTheOneThatUpdates)
{
    Connect();
    bool updated = true;
    auto const image = PatternImage(16);
    uart.Expect({0x01, 0xFE}).Answer({0x79, 0x31, 0x00, 0x00, 0x1F});
    uart.AnswerFromAnotherThread();

    auto const printed = Printed([&] { std::jthread([&] { updated = Update(image); }).join(); });

    EXPECT_FALSE(updated);
    EXPECT_THAT(printed, IsFailure("NACK received, command Get Ver Rops"));
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
