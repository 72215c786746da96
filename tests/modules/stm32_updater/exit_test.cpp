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

TEST_F(ExitTest, SubscribesForItsOwnTimeAndRestoresTheSetup)
{
    ExpectMarkerAndJump();

    EXPECT_THAT(Exit(), IsEmpty());

    EXPECT_THAT(uart.Events(),
                ElementsAre("get setup", "setup 1 1", "subscribe 1", "send 31 ce",
                            "send 20 00 10 00 30", "send 03 50 55 57 46 17", "send 21 de",
                            "send 08 01 02 03 08", "release 1", "setup 4 9"));
    EXPECT_FALSE(uart.Subscribed());
    EXPECT_SCRIPT_DONE();
    EXPECT_THAT(time.timeouts, IsEmpty()) << "nobody waits for the answer to the jump";
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

// Errors of the jump carry the name of the command before it.
TEST_F(ExitTest, LeavesTheLineAsItWasAfterAFailure)
{
    for (bool const at_the_jump : {false, true}) {
        SCOPED_TRACE(at_the_jump ? "at the jump" : "at the marker");
        if (at_the_jump) {
            ExpectMarker();
            uart.Expect({0x21, 0xDE}).Answer({0x1F});
        } else {
            uart.Expect({0x31, 0xCE}).Answer({0x00});
        }

        auto const printed = Exit();

        EXPECT_THAT(printed, IsFailure(at_the_jump ? "NACK received, command Write"
                                                   : "Invalid ACK byte setup 0x00, command Write"));
        ASSERT_FALSE(log.Lines().empty());
        EXPECT_EQ(log.Lines().back(), (LogLine{3, printed.substr(1)}));
        EXPECT_SCRIPT_DONE();
        EXPECT_FALSE(uart.Subscribed());
        EXPECT_EQ(uart.Events().back(), "setup 4 9");
    }
}

}  // namespace
}  // namespace stm32_updater::test
