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

    void ExpectSyncFails(int answer, std::string const& message)
    {
        uart.Expect({0x7F}).Answer({answer});
        ExpectConnectFails(message + ", command Init con");
    }
};

TEST_F(ConnectTest, SetsUpTheLineAndDrivesTheHooksInThisOrder)
{
    Rebuild({.rate = hal::uart::IUartDriver::Rate{7}});
    ExpectSync();
    ExpectGet({0x00});
    ExpectGetId();

    ASSERT_TRUE(updater->ConnectDevice());

    EXPECT_THAT(uart.Events(),
                ElementsAre("line a on", "get setup", "setup 7 1", "subscribe 1", "first hook",
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
    auto const ignore = [](bool) {};
    Stm32UartUpdater plain(note, ignore, uart, bus, update_mutex, 1, false);
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

// The first valid answer fixes the pair of ACK and NACK for this session and all that follow. A
// list without commands is as good as any.
TEST_F(ConnectTest, LearnsTheAckFromTheFirstValidAnswer)
{
    struct {
        int ack, nack, foreign_ack, foreign_nack;
    } const rows[] = {{0x79, 0x1F, 0x75, 0x3F}, {0x75, 0x3F, 0x79, 0x1F}};
    for (auto const& [ack, nack, foreign_ack, foreign_nack] : rows) {
        SCOPED_TRACE(ToHex(ToBytes({ack})));
        Rebuild();
        for (int const first : {0x1F, 0x3F, 0x00, 0xFF}) {
            ExpectSyncFails(first, "Invalid ACK byte setup 0x" + ToHex(ToBytes({first})));
        }
        uart.Expect({0x7F}).Answer({ack});
        uart.Expect({0x00, 0xFF}).Answer({ack, 0x00, 0x31, ack});
        uart.Expect({0x02, 0xFD}).Answer({ack, 0x01, 0x04, 0x69, ack});
        EXPECT_THAT(Printed([&] { EXPECT_TRUE(updater->ConnectDevice()); }), IsEmpty());
        EXPECT_SCRIPT_DONE();
        updater->DisconnectDevice();

        ExpectSyncFails(nack, "NACK received");
        for (int const foreign : {foreign_ack, foreign_nack}) {
            ExpectSyncFails(foreign, "Invalid ACK/NACK received 0x" + ToHex(ToBytes({foreign})));
        }
    }
}

TEST_F(ConnectTest, RefusesWhatIsNotASupportedBootloader)
{
    auto const get = ToBytes({0x79, 0x00, 0x31, 0x79});
    struct {
        Bytes get;
        Bytes id;
        char const* message;
    } const rows[] = {
        {ToBytes({0x79, 0x00, 0x30, 0x79}), {}, "protocol version wrong: 0x30"},
        {ToBytes({0x79, 0x00, 0x32, 0x79}), {}, "protocol version wrong: 0x32"},
        {ToBytes({0x79, 0x00, 0x34, 0x79}), {}, "protocol version wrong: 0x34"},
        {ToBytes({0x79, 64}), {}, "Too many bytes to receive, command Get"},
        {ToBytes({0x79, 0xFF}), {}, "Too many bytes to receive, command Get"},
        {get, ToBytes({0x79, 0x01, 0x04, 0x68, 0x79}), "product ID not supported: 0x0468"},
        {get, ToBytes({0x79, 0x01, 0x69, 0x04, 0x79}), "product ID not supported: 0x6904"},
        {get, ToBytes({0x79, 0x00, 0x69, 0x79}), "product ID not supported: 0x0069"},
        {get, ToBytes({0x79, 0x02, 0x04, 0x69, 0x00, 0x79}), "Too many bytes, not 3"},
        // The count of 64 bytes passes; as a product ID they are too many.
        {get, ToBytes({0x79, 63}), "Too many bytes, not 64"},
        {get, ToBytes({0x79, 64}), "Too many bytes to receive, command Get ID"},
    };
    for (auto const& [get_answer, id_answer, message] : rows) {
        SCOPED_TRACE(message);
        ExpectSync();
        uart.Expect({0x00, 0xFF}).Answer(get_answer);
        if (!id_answer.empty()) {
            uart.Expect({0x02, 0xFD}).Answer(id_answer);
        }
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
    ExpectSyncFails(0x00, "Invalid ACK byte setup 0x00");
    uart.ForgetEvents();
    updater->DisconnectDevice();
    EXPECT_THAT(uart.Events(), ElementsAre("release 1", "setup 4 9"));

    Connect();
    updater->DisconnectDevice();
    EXPECT_THAT(uart.Events(), ElementsAre("release 2", "setup 4 9"));
    EXPECT_FALSE(uart.Subscribed());

    updater->DisconnectDevice();
    EXPECT_THAT(EventsWith("release"), ElementsAre("release 2"));
}

TEST_F(ConnectTest, TheSubscriptionEndsBeforeTheNextConnectAndWithTheUpdater)
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

    updater.reset();
    EXPECT_FALSE(uart.Subscribed());
}

TEST_F(ConnectTest, PassesOnAnExceptionThatIsNotItsOwn)
{
    Stm32UartUpdater broken([](bool) {}, [](bool) {}, uart, bus, update_mutex, 1, false,
                            [] { throw std::runtime_error("hook"); });
    EXPECT_THROW(broken.ConnectDevice(), std::runtime_error);
}

}  // namespace
}  // namespace stm32_updater::test
