// Leaving the bootloader: the boot-mode marker and the jump.
#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned kStart = 0x08000000;
constexpr unsigned kBootMode = 0x20001000;

class ExitTest : public UpdaterTest {
protected:
    void ExpectMarker()
    {
        uart.Expect({0x31, 0xCE}).Answer({0x79});
        uart.Expect({0x20, 0x00, 0x10, 0x00, 0x30}).Answer({0x79});
        uart.Expect({0x03, 'P', 'U', 'W', 'F', 0x17}).Answer({0x79});
    }

    std::string ExitPrints()
    {
        return Printed([&] { updater->ExitDfu(kStart, kBootMode); });
    }
};

TEST_F(ExitTest, WritesTheMarkerThenJumpsWithoutWaitingForTheLastAck)
{
    Connect();
    ExpectMarker();
    uart.Expect({0x21, 0xDE}).Answer({0x79});
    uart.Expect({0x08, 0x00, 0x00, 0x00, 0x08});

    EXPECT_THAT(ExitPrints(), IsEmpty());

    EXPECT_SCRIPT_DONE();
}

TEST_F(ExitTest, SendsTheGivenStartAddress)
{
    Connect();
    ExpectMarker();
    uart.Expect({0x21, 0xDE}).Answer({0x79});
    uart.Expect({0x08, 0x01, 0x02, 0x03, 0x08});

    Printed([&] { updater->ExitDfu(0x08010203, kBootMode); });

    EXPECT_SCRIPT_DONE();
}

TEST_F(ExitTest, SubscribesForItsOwnTimeAndRestoresTheSetup)
{
    ExpectMarker();
    uart.Expect({0x21, 0xDE}).Answer({0x79});
    uart.Expect({0x08, 0x00, 0x00, 0x00, 0x08});

    EXPECT_THAT(ExitPrints(), IsEmpty());

    EXPECT_THAT(uart.Events(),
                ElementsAre("get setup", "setup 1 1", "subscribe 1", "send 31 ce",
                            "send 20 00 10 00 30", "send 03 50 55 57 46 17", "send 21 de",
                            "send 08 00 00 00 08", "release 1", "setup 4 9"));
    EXPECT_FALSE(uart.Subscribed());
}

TEST_F(ExitTest, WithinASessionItReleasesTheSessionsSubscriptionFirst)
{
    Connect();
    ExpectMarker();
    uart.Expect({0x21, 0xDE}).Answer({0x79});
    uart.Expect({0x08, 0x00, 0x00, 0x00, 0x08});

    ExitPrints();

    ASSERT_GE(uart.Events().size(), 4U);
    EXPECT_THAT(std::vector(uart.Events().begin(), uart.Events().begin() + 4),
                ElementsAre("get setup", "setup 1 1", "release 1", "subscribe 2"));
    EXPECT_FALSE(uart.Subscribed());
}

TEST_F(ExitTest, ADisconnectAfterwardsStillRestoresTheSessionsSetup)
{
    Connect();
    ExpectMarker();
    uart.Expect({0x21, 0xDE}).Answer({0x79});
    uart.Expect({0x08, 0x00, 0x00, 0x00, 0x08});
    ExitPrints();
    EXPECT_EQ(uart.Events().back(), "setup 1 1");  // what it found: the session's setup
    uart.ForgetEvents();

    updater->DisconnectDevice();

    EXPECT_THAT(uart.Events(), ElementsAre("setup 4 9"));
}

TEST_F(ExitTest, AfterADisconnectItUsesTheRateOfTheBootloaderAgain)
{
    Connect();
    updater->DisconnectDevice();
    uart.ForgetEvents();
    ExpectMarker();
    uart.Expect({0x21, 0xDE}).Answer({0x79});
    uart.Expect({0x08, 0x00, 0x00, 0x00, 0x08});

    EXPECT_THAT(ExitPrints(), IsEmpty());

    EXPECT_SCRIPT_DONE();
    EXPECT_THAT(EventsWith("setup"), ElementsAre("setup 1 1", "setup 4 9"));
}

TEST_F(ExitTest, DoesNotReportProgress)
{
    Connect();
    ExpectMarker();
    uart.Expect({0x21, 0xDE}).Answer({0x79});
    uart.Expect({0x08, 0x00, 0x00, 0x00, 0x08});
    ExitPrints();
    EXPECT_THAT(EventsWith("progress"), IsEmpty());
}

TEST_F(ExitTest, RetriesAMarkerThatIsRefused)
{
    Connect();
    uart.Expect({0x31, 0xCE}).Answer({0x1F});
    ExpectMarker();
    uart.Expect({0x21, 0xDE}).Answer({0x79});
    uart.Expect({0x08, 0x00, 0x00, 0x00, 0x08});

    EXPECT_THAT(ExitPrints(), IsEmpty());

    EXPECT_SCRIPT_DONE();
}

TEST_F(ExitTest, AMarkerThatFailsLeavesTheLineAsItWas)
{
    uart.Expect({0x31, 0xCE}).Answer({0x00});

    auto const printed = ExitPrints();

    EXPECT_THAT(printed, IsFailure("Invalid ACK byte setup 0x00, command Write"));
    EXPECT_THAT(log.Lines(), ElementsAre(LogLine{3, printed.substr(1)}));
    EXPECT_THAT(uart.Events(), ElementsAre("get setup", "setup 1 1", "subscribe 1", "send 31 ce",
                                           "release 1", "setup 4 9"));
}

TEST_F(ExitTest, ARefusedJumpIsNamedAfterTheWriteAndLeavesTheLineAsItWas)
{
    ExpectMarker();
    uart.Expect({0x21, 0xDE}).Answer({0x1F});

    auto const printed = ExitPrints();

    EXPECT_THAT(printed, IsFailure("NACK received, command Write"));
    EXPECT_SCRIPT_DONE();
    EXPECT_FALSE(uart.Subscribed());
    EXPECT_EQ(uart.Events().back(), "setup 4 9");
}

TEST_F(ExitTest, AJumpWithoutAnAnswerLeavesTheLineAsItWas)
{
    ExpectMarker();
    uart.Expect({0x21, 0xDE});

    EXPECT_THAT(ExitPrints(), IsFailure("receive timeout for 1 bytes, command Write"));

    EXPECT_FALSE(uart.Subscribed());
    EXPECT_EQ(uart.Events().back(), "setup 4 9");
}

}  // namespace
}  // namespace stm32_updater::test
