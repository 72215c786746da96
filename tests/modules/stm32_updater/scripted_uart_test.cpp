// The scripted line itself: what it accepts, what fails a test, and what it records.
#include "tests/modules/stm32_updater/scripted_uart.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <future>

namespace stm32_updater::test {
namespace {

using ::testing::ElementsAre;

void Send(ScriptedUart& uart, std::initializer_list<int> values)
{
    uart.Transmit(ToBytes(values));
}

TEST(ScriptedUart, AnswersTheLastExpectedByteAndNamesWhatIsStillMissing)
{
    ScriptedUart uart;
    uart.Expect({0x11, 0xEE}).Answer({0x79}).Answer({0x01, 0x02});
    uart.Expect({0x05});
    uart.Expect({0x21, 0xDE});
    Bytes received;
    auto const handle = uart.SubscribeOnRx([&](std::byte value) { received.push_back(value); });

    Send(uart, {0x11});
    EXPECT_TRUE(received.empty());
    Send(uart, {0xEE, 0x05});

    EXPECT_EQ(received, ToBytes({0x79, 0x01, 0x02}));
    EXPECT_THAT(uart.Events(), ElementsAre("subscribe 1", "send 11 ee", "send 05"));
    EXPECT_FALSE(uart.Done());
    EXPECT_EQ(uart.Rest(), "21 de");
    Send(uart, {0x21, 0xDE});
    EXPECT_TRUE(uart.Done());
}

TEST(ScriptedUart, FailsTheTestOnWhatIsNotInTheScript)
{
    ScriptedUart uart;
    EXPECT_NONFATAL_FAILURE(uart.Expect({}), "expects no bytes");
    ScriptedUart strict;
    strict.Expect({0x11, 0xEE});
    EXPECT_NONFATAL_FAILURE(Send(strict, {0x11, 0xEF}), "step 0 (11 ee), byte 1: ef was sent");
    EXPECT_FALSE(strict.Done());
    EXPECT_EQ(strict.Rest(), "step 0 (11 ee), byte 1: ef was sent");
    ScriptedUart empty;
    EXPECT_NONFATAL_FAILURE(Send(empty, {0x7F}), "unplanned byte 7f after the end of the script");
    EXPECT_FALSE(empty.Done());
    EXPECT_NONFATAL_FAILURE(Send(empty, {}), "an empty Transmit");
    EXPECT_THROW(empty.TransmitBreak(), std::logic_error);
    auto const bytes = ToBytes({1, 2});
    EXPECT_THROW(empty.TransmitHighPriority(std::span(bytes).first<2>()), std::logic_error);
}

TEST(ScriptedUart, ReleasingAHandleEndsItsOwnSubscriptionOnly)
{
    ScriptedUart uart;
    int received = 0;
    auto first = uart.SubscribeOnRx([](std::byte) {});
    auto second = uart.SubscribeOnRx([&](std::byte) { ++received; });

    first.reset();
    uart.Receive({0x01});
    EXPECT_TRUE(uart.Subscribed());
    second.reset();
    uart.Receive({0x02});

    EXPECT_FALSE(uart.Subscribed());
    EXPECT_EQ(received, 1);
    EXPECT_THAT(uart.Events(), ElementsAre("subscribe 1", "subscribe 2", "release 1", "release 2"));
}

TEST(ScriptedUart, ReportsTheSetupThatWasAskedForLast)
{
    ScriptedUart uart;
    EXPECT_EQ(uart.GetSetup(), ScriptedUart::kOwnSetup);

    uart.Setup(hal::uart::IUartDriver::Rate{3}, hal::uart::IUartDriver::Settings{2});

    EXPECT_EQ(uart.GetSetup(),
              (hal::uart::IUartDriver::LineSetup{hal::uart::IUartDriver::Rate{3},
                                                 hal::uart::IUartDriver::Settings{2}}));
    EXPECT_THAT(uart.Events(), ElementsAre("get setup", "setup 3 2", "get setup"));
}

TEST(ScriptedUart, SendsItsAnswersFromAThreadOfItsOwn)
{
    ScriptedUart uart;
    uart.Expect({0x11}).Answer({0x79}).Answer({0x01});
    uart.AnswerFromAnotherThread();
    std::promise<std::thread::id> last;
    auto const handle = uart.SubscribeOnRx([&](std::byte value) {
        if (value == std::byte{0x01}) {
            last.set_value(std::this_thread::get_id());
        }
    });

    Send(uart, {0x11});

    auto arrived = last.get_future();
    ASSERT_EQ(arrived.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_NE(arrived.get(), std::this_thread::get_id());
}

}  // namespace
}  // namespace stm32_updater::test
