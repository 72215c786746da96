// Opening and closing a session: the handshake, what the unit's answers may be, and what is left
// behind on the line.
#include <chrono>

#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class ConnectTest : public UpdaterTest {
protected:
    // ConnectDevice has to fail, with nothing but `message`.
    void ExpectConnectFails(std::string const& message)
    {
        bool connected = true;
        auto const printed = Printed([&] { connected = updater->ConnectDevice(); });
        EXPECT_FALSE(connected);
        EXPECT_THAT(printed, IsFailure(message));
        EXPECT_SCRIPT_DONE();
    }
};

TEST_F(ConnectTest, SynchronisesThenAsksForTheCommandsAndTheProductId)
{
    uart.Expect({0x7F}).Answer({0x79});
    uart.Expect({0x00, 0xFF})
        .Answer({0x79, 0x07, 0x31, 0x00, 0x01, 0x02, 0x11, 0x21, 0x31, 0x44, 0x79});
    uart.Expect({0x02, 0xFD}).Answer({0x79, 0x01, 0x04, 0x69, 0x79});

    bool connected = false;
    auto const printed = Printed([&] { connected = updater->ConnectDevice(); });

    EXPECT_TRUE(connected);
    EXPECT_THAT(printed, IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_SCRIPT_DONE();
}

TEST_F(ConnectTest, SetsUpTheLineAndDrivesTheHooksInThisOrder)
{
    ExpectSync();
    ExpectGet({0x00});
    ExpectGetId();

    ASSERT_TRUE(updater->ConnectDevice());

    EXPECT_THAT(uart.Events(), ElementsAre("line a on", "get setup", "setup 1 1", "subscribe 1",
                                           "first hook", "line a on", "line b on", "line a off",
                                           "second hook", "send 7f", "send 00 ff", "send 02 fd"));
}

TEST_F(ConnectTest, HoldsTheResetLineForATenthOfASecondAndLetsTheBootloaderStartForTwo)
{
    ExpectSync();
    ExpectGet();
    ExpectGetId();
    steady_clock::time_point asserted;
    steady_clock::time_point released;
    steady_clock::time_point started;
    Stm32UartUpdater timed([&](bool level) { (level ? asserted : released) = steady_clock::now(); },
                           [](bool) {}, uart, bus, update_mutex, 1, false, [] {},
                           [&] { started = steady_clock::now(); });

    ASSERT_TRUE(timed.ConnectDevice());

    EXPECT_GE(released - asserted, milliseconds(100));
    EXPECT_LT(released - asserted, milliseconds(1000));
    EXPECT_GE(started - released, milliseconds(200));
    EXPECT_LT(started - released, milliseconds(1000));
}

TEST_F(ConnectTest, NeedsNoHooks)
{
    ExpectSync();
    ExpectGet();
    ExpectGetId();
    Stm32UartUpdater plain([](bool) {}, [](bool) {}, uart, bus, update_mutex, 1, false);

    EXPECT_TRUE(plain.ConnectDevice());

    EXPECT_THAT(EventsWith("setup"), ElementsAre("setup 1 1"));
}

TEST_F(ConnectTest, AsksForTheRateItWasBuiltWith)
{
    ExpectSync();
    ExpectGet();
    ExpectGetId();
    Stm32UartUpdater fast([](bool) {}, [](bool) {}, uart, bus, update_mutex, 1, false, [] {}, [] {},
                          hal::uart::IUartDriver::Rate{7});

    EXPECT_TRUE(fast.ConnectDevice());

    EXPECT_THAT(EventsWith("setup"), ElementsAre("setup 7 1"));
}

TEST_F(ConnectTest, DropsWhatTheUnitSaidBeforeItsReset)
{
    ExpectSync();
    ExpectGet();
    ExpectGetId();
    auto const talk = [this](bool) { uart.Receive({0x55, 0x1F, 0xAA}); };
    Stm32UartUpdater noisy([](bool) {}, talk, uart, bus, update_mutex, 1, false);

    EXPECT_TRUE(noisy.ConnectDevice());
    EXPECT_SCRIPT_DONE();
}

TEST_F(ConnectTest, TakesAByteThatCameAfterTheResetAsTheAnswerToTheSync)
{
    uart.Expect({0x7F});
    Stm32UartUpdater noisy([](bool) {}, [](bool) {}, uart, bus, update_mutex, 1, false, [] {},
                           [this] { uart.Receive({0x55}); });

    bool connected = true;
    auto const printed = Printed([&] { connected = noisy.ConnectDevice(); });

    EXPECT_FALSE(connected);
    EXPECT_THAT(printed, IsFailure("Invalid ACK byte setup 0x55, command Init con"));
}

TEST_F(ConnectTest, LogsAFailureOnceAtLevelThreeWithThePrintedText)
{
    uart.Expect({0x7F}).Answer({0x00});

    auto const printed = Printed([&] { updater->ConnectDevice(); });

    EXPECT_THAT(printed, IsFailure("Invalid ACK byte setup 0x00, command Init con"));
    EXPECT_THAT(log.Lines(), ElementsAre(LogLine{3, printed.substr(1)}));
}

TEST_F(ConnectTest, FailsWithinASecondAndSomeSlackWhenTheUnitIsSilent)
{
    uart.Expect({0x7F});
    auto const start = steady_clock::now();

    ExpectConnectFails("receive timeout for 1 bytes, command Init con");

    auto const elapsed = steady_clock::now() - start;
    EXPECT_GE(elapsed, milliseconds(1250));  // 300 ms of reset; the timer is a coarse one
    EXPECT_LT(elapsed, milliseconds(3300));
}

TEST_F(ConnectTest, RefusesAFirstAnswerThatIsNoAck)
{
    uart.Expect({0x7F}).Answer({0x1F});
    ExpectConnectFails("Invalid ACK byte setup 0x1f, command Init con");
}

TEST_F(ConnectTest, RefusesTheOtherNackAsAFirstAnswerToo)
{
    uart.Expect({0x7F}).Answer({0x3F});
    ExpectConnectFails("Invalid ACK byte setup 0x3f, command Init con");
}

TEST_F(ConnectTest, TheAck75Makes3FTheNack)
{
    uart.Expect({0x7F}).Answer({0x75});
    uart.Expect({0x00, 0xFF}).Answer({0x3F});
    ExpectConnectFails("NACK received, command Get");
}

TEST_F(ConnectTest, TheAck75Makes79AnInvalidByte)
{
    uart.Expect({0x7F}).Answer({0x75});
    uart.Expect({0x00, 0xFF}).Answer({0x79});
    ExpectConnectFails("Invalid ACK/NACK received 0x79, command Get");
}

TEST_F(ConnectTest, TheAck75Makes1FAnInvalidByte)
{
    uart.Expect({0x7F}).Answer({0x75});
    uart.Expect({0x00, 0xFF}).Answer({0x1F});
    ExpectConnectFails("Invalid ACK/NACK received 0x1f, command Get");
}

TEST_F(ConnectTest, TheAck79Makes1FTheNack)
{
    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer({0x1F});
    ExpectConnectFails("NACK received, command Get");
}

TEST_F(ConnectTest, TheAck79MakesTheOtherPairInvalid)
{
    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer({0x75});
    ExpectConnectFails("Invalid ACK/NACK received 0x75, command Get");
    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer({0x3F});
    ExpectConnectFails("Invalid ACK/NACK received 0x3f, command Get");
}

TEST_F(ConnectTest, OpensAWholeSessionWithTheAck75)
{
    uart.Expect({0x7F}).Answer({0x75});
    uart.Expect({0x00, 0xFF}).Answer({0x75, 0x01, 0x31, 0x00, 0x75});
    uart.Expect({0x02, 0xFD}).Answer({0x75, 0x01, 0x04, 0x69, 0x75});

    EXPECT_TRUE(updater->ConnectDevice());
    EXPECT_SCRIPT_DONE();
}

TEST_F(ConnectTest, TheLearnedAckOutlivesTheSession)
{
    Connect();
    updater->DisconnectDevice();
    uart.Expect({0x7F}).Answer({0x75});
    ExpectConnectFails("Invalid ACK/NACK received 0x75, command Init con");
}

TEST_F(ConnectTest, ASecondSessionCanBeRefusedWithTheLearnedNack)
{
    Connect();
    updater->DisconnectDevice();
    uart.Expect({0x7F}).Answer({0x1F});
    ExpectConnectFails("NACK received, command Init con");
}

TEST_F(ConnectTest, AFirstAnswerThatIsNoAckTeachesNothing)
{
    uart.Expect({0x7F}).Answer({0x1F});
    ExpectConnectFails("Invalid ACK byte setup 0x1f, command Init con");
    uart.Expect({0x7F}).Answer({0x75});
    uart.Expect({0x00, 0xFF}).Answer({0x3F});
    ExpectConnectFails("NACK received, command Get");
}

TEST_F(ConnectTest, OpensASecondSessionOnTheSameObject)
{
    Connect();
    updater->DisconnectDevice();
    Connect();
}

TEST_F(ConnectTest, AcceptsProtocolVersion33)
{
    ExpectSync();
    ExpectGet(kExtendedEraseCommands, 0x33);
    ExpectGetId();
    EXPECT_TRUE(updater->ConnectDevice());
    EXPECT_SCRIPT_DONE();
}

class RefusedVersionTest : public ConnectTest, public ::testing::WithParamInterface<int> {};

TEST_P(RefusedVersionTest, IsNamedAndEndsTheConversation)
{
    ExpectSync();
    ExpectGet(kExtendedEraseCommands, GetParam());
    auto const hex = ToHex({static_cast<std::byte>(GetParam())});
    ExpectConnectFails("protocol version wrong: 0x" + hex);
}

INSTANTIATE_TEST_SUITE_P(Versions, RefusedVersionTest,
                         ::testing::Values(0x00, 0x22, 0x30, 0x32, 0x34, 0xFF));

class ProductIdTest : public ConnectTest, public ::testing::WithParamInterface<int> {};

TEST_P(ProductIdTest, IsSupported)
{
    ExpectSync();
    ExpectGet();
    ExpectGetId(0x04, GetParam());
    EXPECT_TRUE(updater->ConnectDevice());
    EXPECT_SCRIPT_DONE();
}

INSTANTIATE_TEST_SUITE_P(Chips, ProductIdTest, ::testing::Values(0x69, 0x79, 0x82));

TEST_F(ConnectTest, RefusesAProductIdThatIsNotInTheTable)
{
    ExpectSync();
    ExpectGet();
    ExpectGetId(0x04, 0x68);
    ExpectConnectFails("product ID not supported: 0x0468");
}

TEST_F(ConnectTest, ReadsTheProductIdWithItsHighByteFirst)
{
    ExpectSync();
    ExpectGet();
    ExpectGetId(0x69, 0x04);
    ExpectConnectFails("product ID not supported: 0x6904");
}

TEST_F(ConnectTest, TakesAProductIdOfOneByteAsItIs)
{
    ExpectSync();
    ExpectGet();
    uart.Expect({0x02, 0xFD}).Answer({0x79, 0x00, 0x69, 0x79});
    ExpectConnectFails("product ID not supported: 0x0069");
}

TEST_F(ConnectTest, RefusesAProductIdOfThreeBytes)
{
    ExpectSync();
    ExpectGet();
    uart.Expect({0x02, 0xFD}).Answer({0x79, 0x02, 0x04, 0x69, 0x00, 0x79});
    ExpectConnectFails("Too many bytes, not 3");
}

TEST_F(ConnectTest, AcceptsACountByteOf63)
{
    ExpectSync();
    ExpectGet();
    // The count passes; 64 bytes are too many for a product ID, which is another complaint.
    uart.Expect({0x02, 0xFD}).Answer({0x79, 63});
    ExpectConnectFails("Too many bytes, not 64");
}

TEST_F(ConnectTest, RefusesACountByteOf64)
{
    ExpectSync();
    ExpectGet();
    uart.Expect({0x02, 0xFD}).Answer({0x79, 64});
    ExpectConnectFails("Too many bytes to receive, command Get ID");
}

TEST_F(ConnectTest, RefusesACountByteOf64InTheListOfCommands)
{
    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer({0x79, 64});
    ExpectConnectFails("Too many bytes to receive, command Get");
}

TEST_F(ConnectTest, RefusesTheHighestCountByte)
{
    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer({0x79, 0xFF});
    ExpectConnectFails("Too many bytes to receive, command Get");
}

TEST_F(ConnectTest, RefusesANackInPlaceOfTheClosingAckOfGet)
{
    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer({0x79, 0x00, 0x31, 0x1F});
    ExpectConnectFails("NACK received, command Get");
}

TEST_F(ConnectTest, RefusesANackInPlaceOfTheClosingAckOfGetId)
{
    ExpectSync();
    ExpectGet();
    uart.Expect({0x02, 0xFD}).Answer({0x79, 0x01, 0x04, 0x69, 0x1F});
    ExpectConnectFails("NACK received, command Get ID");
}

TEST_F(ConnectTest, DoesWithoutAListOfCommands)
{
    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer({0x79, 0x00, 0x31, 0x79});
    ExpectGetId();
    EXPECT_TRUE(updater->ConnectDevice());
    EXPECT_SCRIPT_DONE();
}

TEST_F(ConnectTest, DisconnectEndsTheSubscriptionThenRestoresTheSetup)
{
    Connect();

    updater->DisconnectDevice();

    EXPECT_THAT(uart.Events(), ElementsAre("release 1", "setup 4 9"));
    EXPECT_FALSE(uart.Subscribed());
}

TEST_F(ConnectTest, DisconnectingTwiceReleasesOnce)
{
    Connect();

    updater->DisconnectDevice();
    updater->DisconnectDevice();

    EXPECT_THAT(EventsWith("release"), ElementsAre("release 1"));
}

TEST_F(ConnectTest, DisconnectingAfterAFailedConnectRestoresTheSetup)
{
    uart.Expect({0x7F}).Answer({0x00});
    ExpectConnectFails("Invalid ACK byte setup 0x00, command Init con");
    uart.ForgetEvents();

    updater->DisconnectDevice();

    EXPECT_THAT(uart.Events(), ElementsAre("release 1", "setup 4 9"));
}

TEST_F(ConnectTest, ConnectingTwiceReleasesTheOldSubscriptionBeforeTheNewOne)
{
    Connect();
    ExpectSync();
    ExpectGet();
    ExpectGetId();

    EXPECT_TRUE(updater->ConnectDevice());

    EXPECT_THAT(EventsWith("release"), ElementsAre("release 1"));
    ASSERT_GE(uart.Events().size(), 5U);
    EXPECT_THAT(std::vector(uart.Events().begin(), uart.Events().begin() + 5),
                ElementsAre("line a on", "get setup", "setup 1 1", "release 1", "subscribe 2"));
    EXPECT_TRUE(uart.Subscribed());
}

TEST_F(ConnectTest, DestroyingTheUpdaterEndsTheSubscription)
{
    Connect();
    updater.reset();
    EXPECT_FALSE(uart.Subscribed());
}

TEST_F(ConnectTest, PassesOnAnExceptionThatIsNotItsOwn)
{
    Stm32UartUpdater broken([](bool) {}, [](bool) {}, uart, bus, update_mutex, 1, false,
                            [] { throw std::runtime_error("hook"); });
    EXPECT_THROW(broken.ConnectDevice(), std::runtime_error);
}

TEST_F(ConnectTest, ReportsTheMcuIdOfItsConstructor)
{
    EXPECT_EQ(updater->GetMcuId(), 0x05);
    Rebuild({.mcu_id = 0xC3});
    EXPECT_EQ(updater->GetMcuId(), 0xC3);
}

}  // namespace
}  // namespace stm32_updater::test
