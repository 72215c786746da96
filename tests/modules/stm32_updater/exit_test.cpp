// Leaving the bootloader: the boot-mode marker and the jump.
#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ExitTest : public UpdaterTest {
protected:
    void ExpectMarker()
    {
        uart.Expect({0x31, 0xCE}).Answer({0x79});
        uart.Expect({0x20, 0x00, 0x10, 0x00, 0x30}).Answer({0x79});
        uart.Expect({0x03, 'P', 'U', 'W', 'F', 0x17}).Answer({0x79});
    }

    void ExpectMarkerAndJump()
    {
        ExpectMarker();
        uart.Expect({0x21, 0xDE}).Answer({0x79});
        uart.Expect({0x08, 0x01, 0x02, 0x03, 0x08});
    }

    // What it prints.
    std::string Exit()
    {
        return Printed([&] { updater->ExitDfu(0x08010203, 0x20001000); });
    }
};

TEST_F(ExitTest, WritesTheMarkerThenJumpsWithoutWaitingForTheLastAck)
{
    Connect();
    ExpectMarkerAndJump();

    EXPECT_THAT(Exit(), IsEmpty());

    EXPECT_SCRIPT_DONE();
    EXPECT_THAT(time.timeouts, IsEmpty());
    EXPECT_THAT(EventsWith("progress"), IsEmpty());
}

TEST_F(ExitTest, SubscribesForItsOwnTimeAndRestoresTheSetup)
{
    ExpectMarkerAndJump();

    EXPECT_THAT(Exit(), IsEmpty());

    EXPECT_THAT(uart.Events(),
                ElementsAre("get setup", "setup 1 1", "subscribe 1", "send 31 ce",
                            "send 20 00 10 00 30", "send 03 50 55 57 46 17", "send 21 de",
                            "send 08 01 02 03 08", "release 1", "setup 4 9"));
    EXPECT_FALSE(uart.Subscribed());
}

TEST_F(ExitTest, WithinASessionReleasesTheSessionsSubscriptionAndKeepsItsSetup)
{
    Connect();
    ExpectMarkerAndJump();

    Exit();

    ASSERT_GE(uart.Events().size(), 4U);
    EXPECT_THAT(std::vector(uart.Events().begin(), uart.Events().begin() + 4),
                ElementsAre("get setup", "setup 1 1", "release 1", "subscribe 2"));
    EXPECT_FALSE(uart.Subscribed());
    EXPECT_EQ(uart.Events().back(), "setup 1 1");
    uart.ForgetEvents();
    updater->DisconnectDevice();
    EXPECT_THAT(uart.Events(), ElementsAre("setup 4 9"));
}

TEST_F(ExitTest, UsesTheRateOfTheBootloaderAgainAfterADisconnect)
{
    Connect();
    updater->DisconnectDevice();
    uart.ForgetEvents();
    ExpectMarkerAndJump();

    EXPECT_THAT(Exit(), IsEmpty());

    EXPECT_SCRIPT_DONE();
    EXPECT_THAT(EventsWith("setup"), ElementsAre("setup 1 1", "setup 4 9"));
}

TEST_F(ExitTest, RepeatsAMarkerThatIsRefused)
{
    Connect();
    uart.Expect({0x31, 0xCE}).Answer({0x1F});
    ExpectMarkerAndJump();

    EXPECT_THAT(Exit(), IsEmpty());

    EXPECT_SCRIPT_DONE();
}

TEST_F(ExitTest, LeavesTheLineAsItWasWhenTheMarkerFails)
{
    uart.Expect({0x31, 0xCE}).Answer({0x00});

    auto const printed = Exit();

    EXPECT_THAT(printed, IsFailure("Invalid ACK byte setup 0x00, command Write"));
    EXPECT_THAT(log.Lines(), ElementsAre(LogLine{3, printed.substr(1)}));
    EXPECT_THAT(uart.Events(), ElementsAre("get setup", "setup 1 1", "subscribe 1", "send 31 ce",
                                           "release 1", "setup 4 9"));
}

// Errors of the jump carry the name of the command before it.
TEST_F(ExitTest, LeavesTheLineAsItWasWhenTheJumpFails)
{
    struct {
        Bytes answer;
        char const* message;
    } const rows[] = {
        {ToBytes({0x1F}), "NACK received, command Write"},
        {{}, "receive timeout for 1 bytes, command Write"},
    };
    for (auto const& [answer, message] : rows) {
        ExpectMarker();
        uart.Expect({0x21, 0xDE}).Answer(answer);
        EXPECT_THAT(Exit(), IsFailure(message));
        EXPECT_SCRIPT_DONE();
        EXPECT_FALSE(uart.Subscribed());
        EXPECT_EQ(uart.Events().back(), "setup 4 9");
    }
}

}  // namespace
}  // namespace stm32_updater::test
