// The ring between the serial thread and the protocol thread, here on one thread;
// engine_threaded_test.cpp uses two.
#include "modules/stm32_updater/rx_queue.h"

#include <gtest/gtest.h>

namespace stm32_updater::test {
namespace {

TEST(RxQueue, KeepsSixtyFourBytesFromEveryStartingSlotAndDropsTheRest)
{
    RxQueue queue;
    EXPECT_EQ(queue.Pop(), std::nullopt);
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
