// The ring between the serial thread and the protocol thread, on one thread.
// engine_threaded_test.cpp has the two.
#include "modules/stm32_updater/rx_queue.h"

#include <gtest/gtest.h>

namespace stm32_updater::test {
namespace {

TEST(RxQueue, IsEmptyAtFirst)
{
    RxQueue queue;
    EXPECT_EQ(queue.Pop(), std::nullopt);
}

TEST(RxQueue, GivesBytesBackInTheirOrder)
{
    RxQueue queue;
    queue.Push(std::byte{1});
    queue.Push(std::byte{2});
    EXPECT_EQ(queue.Pop(), std::byte{1});
    EXPECT_EQ(queue.Pop(), std::byte{2});
    EXPECT_EQ(queue.Pop(), std::nullopt);
}

TEST(RxQueue, KeepsSixtyFourBytesAndDropsTheNext)
{
    RxQueue queue;
    for (int i = 0; i < 65; ++i) {
        queue.Push(static_cast<std::byte>(i));
    }
    for (int i = 0; i < 64; ++i) {
        ASSERT_EQ(queue.Pop(), static_cast<std::byte>(i));
    }
    EXPECT_EQ(queue.Pop(), std::nullopt);
}

TEST(RxQueue, TakesAByteAgainOnceOneIsRead)
{
    RxQueue queue;
    for (int i = 0; i < 64; ++i) {
        queue.Push(static_cast<std::byte>(i));
    }
    ASSERT_EQ(queue.Pop(), std::byte{0});
    queue.Push(std::byte{64});
    for (int i = 1; i <= 64; ++i) {
        ASSERT_EQ(queue.Pop(), static_cast<std::byte>(i));
    }
    EXPECT_EQ(queue.Pop(), std::nullopt);
}

TEST(RxQueue, HoldsSixtyFourBytesFromEveryStartingSlot)
{
    RxQueue queue;
    for (int start = 0; start < 130; ++start) {
        queue.Push(std::byte{0xEE});
        ASSERT_EQ(queue.Pop(), std::byte{0xEE});
        for (int i = 0; i < 66; ++i) {
            queue.Push(static_cast<std::byte>(i));
        }
        for (int i = 0; i < 64; ++i) {
            ASSERT_EQ(queue.Pop(), static_cast<std::byte>(i)) << "start " << start;
        }
        ASSERT_EQ(queue.Pop(), std::nullopt) << "start " << start;
    }
}

TEST(RxQueue, IsEmptyAfterClear)
{
    RxQueue queue;
    for (int i = 0; i < 70; ++i) {
        queue.Push(std::byte{0x55});
    }
    queue.Clear();
    EXPECT_EQ(queue.Pop(), std::nullopt);
    queue.Push(std::byte{0x01});
    EXPECT_EQ(queue.Pop(), std::byte{0x01});
}

}  // namespace
}  // namespace stm32_updater::test
