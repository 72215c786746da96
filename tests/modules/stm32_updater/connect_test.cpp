// Opening and closing a session: the handshake, the answers that are accepted, and the state of the
// line afterwards.
#include <chrono>

#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ConnectTest : public UpdaterTest {
protected:
    void ExpectConnectFails(std::string const& message)
    {
        bool connected = true;
        auto const lines = log.Lines().size();
        auto const printed = Printed([&] { connected = updater->ConnectDevice(); });
        EXPECT_FALSE(connected);
        EXPECT_THAT(printed, IsFailure(message));
        ASSERT_EQ(log.Lines().size(), lines + 1);
        EXPECT_EQ(log.Lines().back(), (LogLine{3, printed.substr(1)}));
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

    EXPECT_THAT(uart.Events(),
                ElementsAre("line a on", "get setup", "setup 1 1", "subscribe 1", "first hook",
                            "line a on", "line b on", "pause 100", "line a off", "pause 200",
                            "second hook", "send 7f", "send 00 ff", "send 02 fd"));
}

// In real time, with nothing but the parameters that have no default: 100 ms of reset, 200 ms for
// the bootloader's start, 1 s for the answer.
TEST_F(ConnectTest, PausesAndWaitsInRealTimeUnlessSaidOtherwise)
{
    uart.Expect({0x7F});
    std::vector<steady_clock::time_point> levels;
    auto const note = [&](bool) { levels.push_back(steady_clock::now()); };
    Stm32UartUpdater plain(note, [](bool) {}, uart, bus, update_mutex, 1, false);
    bool connected = true;

    auto const printed = Printed([&] { connected = plain.ConnectDevice(); });

    auto const end = steady_clock::now();
    EXPECT_FALSE(connected);
    EXPECT_THAT(printed, IsFailure("receive timeout for 1 bytes, command Init con"));
    EXPECT_THAT(EventsWith("setup"), ElementsAre("setup 1 1"));
    ASSERT_EQ(levels.size(), 3U);
    EXPECT_GE(levels[2] - levels[1], milliseconds(100));
    EXPECT_LT(levels[2] - levels[1], milliseconds(1000));
    EXPECT_GE(end - levels[2], milliseconds(1150));  // a coarse timer may come 5 % early
    EXPECT_LT(end - levels[2], milliseconds(3000));
}

TEST_F(ConnectTest, AsksForTheRateThatItWasBuiltWith)
{
    Rebuild({.rate = hal::uart::IUartDriver::Rate{7}});
    ExpectSync();
    ExpectGet();
    ExpectGetId();

    EXPECT_TRUE(updater->ConnectDevice());

    EXPECT_THAT(EventsWith("setup"), ElementsAre("setup 7 1"));
}

TEST_F(ConnectTest, DropsWhatTheUnitSendsBeforeItsResetButNothingAfterIt)
{
    ExpectSync();
    ExpectGet();
    ExpectGetId();
    auto const quiet = [](bool) {};
    auto const rate = hal::uart::IUartDriver::Rate::kBootloader;
    auto const talk = [this] { uart.Receive({0x55, 0x1F, 0xAA}); };
    Stm32UartUpdater before(
        quiet, [&](bool) { talk(); }, uart, bus, update_mutex, 1, false, [] {}, [] {}, rate,
        time.GetWaits());
    EXPECT_TRUE(before.ConnectDevice());
    EXPECT_SCRIPT_DONE();

    uart.Expect({0x7F});
    Stm32UartUpdater after(
        quiet, quiet, uart, bus, update_mutex, 1, false, [] {}, talk, rate, time.GetWaits());
    bool connected = true;
    auto const printed = Printed([&] { connected = after.ConnectDevice(); });
    EXPECT_FALSE(connected);
    EXPECT_THAT(printed, IsFailure("Invalid ACK byte setup 0x55, command Init con"));
}

// The first answer fixes the pair of ACK and NACK for the rest of the session.
TEST_F(ConnectTest, LearnsTheAckFromTheFirstAnswer)
{
    struct {
        int first;
        int second;
        char const* message;
    } const rows[] = {
        {0x79, 0x1F, "NACK received, command Get"},
        {0x79, 0x75, "Invalid ACK/NACK received 0x75, command Get"},
        {0x79, 0x3F, "Invalid ACK/NACK received 0x3f, command Get"},
        {0x75, 0x3F, "NACK received, command Get"},
        {0x75, 0x79, "Invalid ACK/NACK received 0x79, command Get"},
        {0x75, 0x1F, "Invalid ACK/NACK received 0x1f, command Get"},
    };
    for (auto const& [first, second, message] : rows) {
        SCOPED_TRACE(ToHex(ToBytes({first, second})));
        Rebuild();
        uart.Expect({0x7F}).Answer({first});
        uart.Expect({0x00, 0xFF}).Answer({second});
        ExpectConnectFails(message);
    }
}

TEST_F(ConnectTest, LearnsNothingFromAFirstAnswerThatIsNotAnAck)
{
    for (int const first : {0x1F, 0x3F, 0x00, 0xFF}) {
        auto const hex = ToHex(ToBytes({first}));
        uart.Expect({0x7F}).Answer({first});
        ExpectConnectFails("Invalid ACK byte setup 0x" + hex + ", command Init con");
    }
    uart.Expect({0x7F}).Answer({0x75});
    uart.Expect({0x00, 0xFF}).Answer({0x3F});
    ExpectConnectFails("NACK received, command Get");
}

TEST_F(ConnectTest, OpensAWholeSessionWithTheAck75)
{
    uart.Expect({0x7F}).Answer({0x75});
    uart.Expect({0x00, 0xFF}).Answer({0x75, 0x01, 0x31, 0x00, 0x75});
    uart.Expect({0x02, 0xFD}).Answer({0x75, 0x01, 0x04, 0x69, 0x75});

    EXPECT_TRUE(updater->ConnectDevice());
    EXPECT_SCRIPT_DONE();
}

TEST_F(ConnectTest, KeepsTheLearnedAckForTheNextSession)
{
    Connect();
    updater->DisconnectDevice();
    Connect();
    updater->DisconnectDevice();
    uart.Expect({0x7F}).Answer({0x75});
    ExpectConnectFails("Invalid ACK/NACK received 0x75, command Init con");
    uart.Expect({0x7F}).Answer({0x1F});
    ExpectConnectFails("NACK received, command Init con");
}

TEST_F(ConnectTest, AcceptsBothProtocolVersionsAndEveryChip)
{
    for (int const version : {0x31, 0x33}) {
        for (int const id : {0x69, 0x79, 0x82}) {
            ExpectSync();
            ExpectGet(kExtendedEraseCommands, version);
            ExpectGetId(0x04, id);
            EXPECT_TRUE(updater->ConnectDevice()) << version << ' ' << id;
            EXPECT_SCRIPT_DONE();
        }
    }
}

TEST_F(ConnectTest, DoesWithoutAListOfCommands)
{
    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer({0x79, 0x00, 0x31, 0x79});
    ExpectGetId();
    EXPECT_TRUE(updater->ConnectDevice());
    EXPECT_SCRIPT_DONE();
}

TEST_F(ConnectTest, RefusesOtherProtocolVersions)
{
    for (int const version : {0x00, 0x22, 0x30, 0x32, 0x34, 0xFF}) {
        ExpectSync();
        ExpectGet(kExtendedEraseCommands, version);
        ExpectConnectFails("protocol version wrong: 0x" + ToHex(ToBytes({version})));
    }
}

TEST_F(ConnectTest, RefusesAListOfCommandsThatIsTooLongOrDoesNotEndWithAnAck)
{
    struct {
        Bytes answer;
        char const* message;
    } const rows[] = {
        {ToBytes({0x79, 64}), "Too many bytes to receive, command Get"},
        {ToBytes({0x79, 0xFF}), "Too many bytes to receive, command Get"},
        {ToBytes({0x79, 0x00, 0x31, 0x1F}), "NACK received, command Get"},
    };
    for (auto const& [answer, message] : rows) {
        SCOPED_TRACE(ToHex(answer));
        ExpectSync();
        uart.Expect({0x00, 0xFF}).Answer(answer);
        ExpectConnectFails(message);
    }
}

TEST_F(ConnectTest, RefusesEveryOtherProductId)
{
    struct {
        Bytes answer;
        char const* message;
    } const rows[] = {
        {ToBytes({0x79, 0x01, 0x04, 0x68, 0x79}), "product ID not supported: 0x0468"},
        {ToBytes({0x79, 0x01, 0x69, 0x04, 0x79}), "product ID not supported: 0x6904"},
        {ToBytes({0x79, 0x00, 0x69, 0x79}), "product ID not supported: 0x0069"},
        {ToBytes({0x79, 0x02, 0x04, 0x69, 0x00, 0x79}), "Too many bytes, not 3"},
        // The count of 64 bytes passes; as a product ID they are too many.
        {ToBytes({0x79, 63}), "Too many bytes, not 64"},
        {ToBytes({0x79, 64}), "Too many bytes to receive, command Get ID"},
        {ToBytes({0x79, 0x01, 0x04, 0x69, 0x1F}), "NACK received, command Get ID"},
    };
    for (auto const& [answer, message] : rows) {
        SCOPED_TRACE(ToHex(answer));
        ExpectSync();
        ExpectGet();
        uart.Expect({0x02, 0xFD}).Answer(answer);
        ExpectConnectFails(message);
    }
}

// A list of 64 bytes does not fit into the receive queue together with its ACKs and its count. On a
// line the last bytes come later; here, when the first ones have been read.
TEST_F(ConnectTest, AcceptsAListOf64Bytes)
{
    auto first = ToBytes({0x79, 63, 0x31});
    first.resize(60, std::byte{0x63});
    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer(first);
    time.arrivals = {[this] { uart.Receive({0x63, 0x63, 0x63, 0x63, 0x63, 0x63, 0x79}); }};
    ExpectGetId();

    // The wake-ups of the first bytes are used up before the engine waits for more.
    EXPECT_TRUE(updater->ConnectDevice());
    EXPECT_SCRIPT_DONE();
}

TEST_F(ConnectTest, DisconnectEndsTheSubscriptionThenRestoresTheSetup)
{
    Connect();

    updater->DisconnectDevice();
    EXPECT_THAT(uart.Events(), ElementsAre("release 1", "setup 4 9"));
    EXPECT_FALSE(uart.Subscribed());

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
