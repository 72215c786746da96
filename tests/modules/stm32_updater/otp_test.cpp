// Reading the one-time-programmable area: the pieces, and what becomes of a piece that fails.
#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned kOtp = 0x1FFF7000;

class OtpTest : public UpdaterTest {
protected:
    void SetUp() override { Connect(); }

    // One Read Memory: command, address, count; `answer` follows the last ACK.
    void ExpectRead(std::initializer_list<int> address, std::initializer_list<int> count,
                    Bytes answer)
    {
        uart.Expect({0x11, 0xEE}).Answer({0x79});
        uart.Expect(address).Answer({0x79});
        uart.Expect(count).Answer({0x79}).Answer(std::move(answer));
    }

    void ExpectReadFails(std::string const& message)
    {
        Bytes bytes = ToBytes({1});
        auto const printed = Printed([&] { bytes = updater->GetOtp(kOtp, 8); });
        EXPECT_THAT(bytes, IsEmpty());
        EXPECT_THAT(printed, IsFailure(message));
        EXPECT_THAT(log.Lines(), ElementsAre(LogLine{3, printed.substr(1)}));
        EXPECT_SCRIPT_DONE();
    }
};

TEST_F(OtpTest, ReadsASmallAreaAtOnce)
{
    ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x07, 0xF8},
               ToBytes({0x11, 0x47, 0x23, 0x01, 0x79, 0x1F, 0x00, 0xFF}));

    EXPECT_EQ(updater->GetOtp(kOtp, 8), ToBytes({0x11, 0x47, 0x23, 0x01, 0x79, 0x1F, 0x00, 0xFF}));
    EXPECT_SCRIPT_DONE();
}

TEST_F(OtpTest, ReadsInPiecesOf32Bytes)
{
    auto const otp = PatternImage(64);
    ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x1F, 0xE0}, Slice(otp, 0, 32));
    ExpectRead({0x1F, 0xFF, 0x70, 0x20, 0xB0}, {0x1F, 0xE0}, Slice(otp, 32, 32));

    EXPECT_EQ(updater->GetOtp(kOtp, 64), otp);
    EXPECT_SCRIPT_DONE();
}

TEST_F(OtpTest, ReadsTheRestInAShorterPiece)
{
    auto const otp = PatternImage(40);
    ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x1F, 0xE0}, Slice(otp, 0, 32));
    ExpectRead({0x1F, 0xFF, 0x70, 0x20, 0xB0}, {0x07, 0xF8}, Slice(otp, 32, 8));

    EXPECT_EQ(updater->GetOtp(kOtp, 40), otp);
    EXPECT_SCRIPT_DONE();
}

TEST_F(OtpTest, ReadsASingleByte)
{
    ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x00, 0xFF}, ToBytes({0xA5}));

    EXPECT_EQ(updater->GetOtp(kOtp, 1), ToBytes({0xA5}));
    EXPECT_SCRIPT_DONE();
}

TEST_F(OtpTest, ReadsA512ByteAreaInSixteenPieces)
{
    auto const otp = PatternImage(512);
    for (unsigned i = 0; i < 16; ++i) {
        int const high = 0x70 + static_cast<int>(i / 8);
        int const low = static_cast<int>(i % 8) * 0x20;
        ExpectRead({0x1F, 0xFF, high, low, 0x1F ^ 0xFF ^ high ^ low}, {0x1F, 0xE0},
                   Slice(otp, i * size_t{32}, 32));
    }

    EXPECT_EQ(updater->GetOtp(kOtp, 512), otp);
    EXPECT_SCRIPT_DONE();
}

TEST_F(OtpTest, SendsNothingForNoBytes)
{
    EXPECT_THAT(updater->GetOtp(kOtp, 0), IsEmpty());
    EXPECT_SCRIPT_DONE();
}

TEST_F(OtpTest, ANackOfTheCommandGivesNoBytes)
{
    uart.Expect({0x11, 0xEE}).Answer({0x1F});
    ExpectReadFails("NACK received, command Read");
}

TEST_F(OtpTest, ANackAfterTheAddressGivesNoBytes)
{
    uart.Expect({0x11, 0xEE}).Answer({0x79});
    uart.Expect({0x1F, 0xFF, 0x70, 0x00, 0x90}).Answer({0x1F});
    ExpectReadFails("NACK received, command Read");
}

TEST_F(OtpTest, ANackAfterTheCountGivesNoBytes)
{
    uart.Expect({0x11, 0xEE}).Answer({0x79});
    uart.Expect({0x1F, 0xFF, 0x70, 0x00, 0x90}).Answer({0x79});
    uart.Expect({0x07, 0xF8}).Answer({0x1F});
    ExpectReadFails("NACK received, command Read");
}

TEST_F(OtpTest, DataThatStopHalfwayGiveNoBytes)
{
    ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x07, 0xF8}, ToBytes({1, 2, 3, 4, 5, 6, 7}));
    ExpectReadFails("receive timeout for 8 bytes, command Read");
}

TEST_F(OtpTest, AFailureInTheSecondPieceGivesNoBytesOfTheFirst)
{
    ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x1F, 0xE0}, PatternImage(32));
    uart.Expect({0x11, 0xEE}).Answer({0x1F});

    Bytes bytes = ToBytes({1});
    auto const printed = Printed([&] { bytes = updater->GetOtp(kOtp, 64); });

    EXPECT_THAT(bytes, IsEmpty());
    EXPECT_THAT(printed, IsFailure("NACK received, command Read"));
    EXPECT_SCRIPT_DONE();
}

TEST_F(OtpTest, ReadsAgainAfterAFailure)
{
    uart.Expect({0x11, 0xEE}).Answer({0x1F});
    ExpectReadFails("NACK received, command Read");
    ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x00, 0xFF}, ToBytes({0xA5}));

    EXPECT_EQ(updater->GetOtp(kOtp, 1), ToBytes({0xA5}));
}

TEST_F(OtpTest, ReadsAnyAddress)
{
    ExpectRead({0x0B, 0xFA, 0x00, 0x04, 0xF5}, {0x03, 0xFC}, ToBytes({1, 2, 3, 4}));

    EXPECT_EQ(updater->GetOtp(0x0BFA0004, 4), ToBytes({1, 2, 3, 4}));
    EXPECT_SCRIPT_DONE();
}

// The receive queue holds 64 bytes. Here the unit sends the ACK, 63 data bytes and one byte more in
// one go; the reader takes 33 of them, and the 31 left over serve the next read.
TEST_F(OtpTest, LosesTheByteThatFindsSixtyFourUnreadOnes)
{
    Bytes flood(63, std::byte{0x79});
    flood.push_back(std::byte{0x55});  // lost: it would be an invalid answer
    ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x1F, 0xE0}, flood);
    EXPECT_EQ(updater->GetOtp(kOtp, 32), Bytes(32, std::byte{0x79}));
    uart.Expect({0x11, 0xEE});
    uart.Expect({0x1F, 0xFF, 0x70, 0x00, 0x90});
    uart.Expect({0x1B, 0xE4});  // 3 ACKs and 28 bytes: all 31
    EXPECT_EQ(updater->GetOtp(kOtp, 28), Bytes(28, std::byte{0x79}));

    ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x01, 0xFE}, ToBytes({0xA5, 0x5A}));
    EXPECT_EQ(updater->GetOtp(kOtp, 2), ToBytes({0xA5, 0x5A}));
    EXPECT_SCRIPT_DONE();
}

// Every received byte wakes the reader once, and bytes that were there already use up no wake-up.
// Those left over must neither be taken for bytes nor make the time-out come early.
TEST_F(OtpTest, LeftOverWakeUpsAreHarmless)
{
    for (int i = 0; i < 8; ++i) {
        ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x1F, 0xE0}, PatternImage(32));
        ASSERT_EQ(updater->GetOtp(kOtp, 32), PatternImage(32));
    }
    uart.Expect({0x11, 0xEE});
    auto const start = std::chrono::steady_clock::now();

    ExpectReadFails("receive timeout for 1 bytes, command Read");

    auto const elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::milliseconds(950));  // a coarse timer may come 5 % early
    EXPECT_LT(elapsed, std::chrono::milliseconds(3000));
}

TEST(OtpWithoutASession, FailsWithoutCrashing)
{
    ScriptedUart uart;
    dispatcher::Dispatcher bus({}, 1);
    std::mutex mutex;
    Stm32UartUpdater updater([](bool) {}, [](bool) {}, uart, bus, mutex, 1, false);
    uart.Expect({0x11, 0xEE}).Answer({0x79});  // nobody is subscribed: the answer is lost

    Bytes bytes = ToBytes({1});
    auto const printed = Printed([&] { bytes = updater.GetOtp(kOtp, 8); });

    EXPECT_THAT(bytes, IsEmpty());
    EXPECT_THAT(printed, IsFailure("receive timeout for 1 bytes, command Read"));
}

}  // namespace
}  // namespace stm32_updater::test
