// Reading the one-time-programmable area: its pieces, and what becomes of a piece that fails.
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
    Exchange& ExpectRead(std::initializer_list<int> address, std::initializer_list<int> count,
                         Bytes const& answer)
    {
        uart.Expect({0x11, 0xEE}).Answer({0x79});
        uart.Expect(address).Answer({0x79});
        return uart.Expect(count).Answer({0x79}).Answer(answer);
    }

    void ExpectReadFails(std::string const& message, unsigned long size = 8)
    {
        auto bytes = ToBytes({1});
        auto const printed = Printed([&] { bytes = updater->GetOtp(kOtp, size); });
        EXPECT_THAT(bytes, IsEmpty());
        EXPECT_THAT(printed, IsFailure(message));
        EXPECT_THAT(log.Lines(), ElementsAre(LogLine{3, printed.substr(1)}));
        EXPECT_SCRIPT_DONE();
    }

    static constexpr std::initializer_list<int> kAddress = {0x1F, 0xFF, 0x70, 0x00, 0x90};
};

TEST_F(OtpTest, ReadsASmallAreaAtOnce)
{
    auto const otp = ToBytes({0x11, 0x47, 0x23, 0x01, 0x79, 0x1F, 0x00, 0xFF});
    ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x07, 0xF8}, otp);

    EXPECT_EQ(updater->GetOtp(kOtp, 8), otp);
    EXPECT_SCRIPT_DONE();
}

TEST_F(OtpTest, ReadsInPiecesOf32BytesTheLastOneShorter)
{
    auto const otp = PatternImage(40);
    ExpectRead({0x1F, 0xFF, 0x70, 0x00, 0x90}, {0x1F, 0xE0}, Slice(otp, 0, 32));
    ExpectRead({0x1F, 0xFF, 0x70, 0x20, 0xB0}, {0x07, 0xF8}, Slice(otp, 32, 8));

    EXPECT_EQ(updater->GetOtp(kOtp, 40), otp);
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

TEST_F(OtpTest, ReadsASingleByteAtAnyAddress)
{
    ExpectRead({0x0B, 0xFA, 0x00, 0x04, 0xF5}, {0x00, 0xFF}, ToBytes({0xA5}));

    EXPECT_EQ(updater->GetOtp(0x0BFA0004, 1), ToBytes({0xA5}));
    EXPECT_SCRIPT_DONE();
}

TEST_F(OtpTest, SendsNothingForNoBytes)
{
    EXPECT_THAT(updater->GetOtp(kOtp, 0), IsEmpty());
    EXPECT_SCRIPT_DONE();
}

TEST_F(OtpTest, ReturnsNoBytesOfTheFirstPieceWhenTheSecondFails)
{
    ExpectRead(kAddress, {0x1F, 0xE0}, PatternImage(32));
    uart.Expect({0x11, 0xEE}).Answer({0x1F});
    ExpectReadFails("NACK received, command Read", 64);
}

TEST_F(OtpTest, ReadsAgainAfterAFailure)
{
    uart.Expect({0x11, 0xEE}).Answer({0x1F});
    ExpectReadFails("NACK received, command Read");
    ExpectRead(kAddress, {0x00, 0xFF}, ToBytes({0xA5}));

    EXPECT_EQ(updater->GetOtp(kOtp, 1), ToBytes({0xA5}));
}

// Two bytes come while the engine waits, the third does not: each wait has the whole second.
TEST_F(OtpTest, GivesEveryByteATimeLimitOfItsOwn)
{
    ExpectRead(kAddress, {0x02, 0xFD}, {});
    time.arrivals = {[this] { uart.Receive({0x01}); }, [this] { uart.Receive({0x02}); }};

    ExpectReadFails("receive timeout for 3 bytes, command Read", 3);

    EXPECT_THAT(time.timeouts, ElementsAre(1000U));
    EXPECT_TRUE(time.arrivals.empty());
}

// The receive queue holds 64 bytes. Here the unit sends the ACK, 63 data bytes and one byte more at
// once; the engine takes 33 of them, and the remaining 31 serve the next read.
TEST_F(OtpTest, LosesTheByteThatFindsSixtyFourUnreadOnes)
{
    Bytes flood(63, std::byte{0x79});
    flood.push_back(std::byte{0x55});  // lost: it would be an invalid answer
    ExpectRead(kAddress, {0x1F, 0xE0}, flood);
    EXPECT_EQ(updater->GetOtp(kOtp, 32), Bytes(32, std::byte{0x79}));
    uart.Expect({0x11, 0xEE});
    uart.Expect(kAddress);
    uart.Expect({0x1B, 0xE4});  // 3 ACKs and 28 bytes: all 31
    EXPECT_EQ(updater->GetOtp(kOtp, 28), Bytes(28, std::byte{0x79}));

    ExpectRead(kAddress, {0x01, 0xFE}, ToBytes({0xA5, 0x5A}));
    EXPECT_EQ(updater->GetOtp(kOtp, 2), ToBytes({0xA5, 0x5A}));
    EXPECT_SCRIPT_DONE();
}

// Every received byte releases a wake-up, and bytes that were there already use none. Those left
// over are neither taken for bytes nor end the wait early.
TEST_F(OtpTest, IgnoresWakeUpsThatAreLeftOver)
{
    for (int i = 0; i < 8; ++i) {
        ExpectRead(kAddress, {0x1F, 0xE0}, PatternImage(32));
        ASSERT_EQ(updater->GetOtp(kOtp, 32), PatternImage(32));
    }
    uart.Expect({0x11, 0xEE});

    ExpectReadFails("receive timeout for 1 bytes, command Read");

    EXPECT_THAT(time.timeouts, ElementsAre(1000U));
}

TEST_F(OtpTest, FailsWithoutASession)
{
    updater->DisconnectDevice();
    uart.Expect({0x11, 0xEE}).Answer({0x79});  // lost: nobody is subscribed
    ExpectReadFails("receive timeout for 1 bytes, command Read");
}

}  // namespace
}  // namespace stm32_updater::test
