// Reading the one-time-programmable area: its pieces, and what becomes of a piece that fails.
#include <algorithm>

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
    Exchange& ExpectRead(Bytes const& address, std::initializer_list<int> count,
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

    Bytes const otp_address = ToBytes({0x1F, 0xFF, 0x70, 0x00, 0x90});
};

TEST_F(OtpTest, ReadsInPiecesOf32BytesTheLastOneShorter)
{
    struct {
        uint32_t address;
        size_t size;
    } const rows[] = {{kOtp, 0}, {0x0BFA0004, 1}, {kOtp, 32}, {kOtp, 40}, {kOtp, 512}};
    for (auto const& [address, size] : rows) {
        auto const otp = PatternImage(size);
        for (size_t offset = 0; offset < size; offset += 32) {
            auto const piece = Slice(otp, offset, std::min<size_t>(32, size - offset));
            auto const count = static_cast<int>(piece.size()) - 1;
            ExpectRead(AddressBytes(address + static_cast<uint32_t>(offset)), {count, 0xFF ^ count},
                       piece);
        }
        EXPECT_EQ(updater->GetOtp(address, size), otp) << size;
        EXPECT_SCRIPT_DONE();
    }
}

TEST_F(OtpTest, ReturnsNoBytesOfTheFirstPieceWhenTheSecondFailsAndCanBeRepeated)
{
    ExpectRead(otp_address, {0x1F, 0xE0}, PatternImage(32));
    uart.Expect({0x11, 0xEE}).Answer({0x1F});
    ExpectReadFails("NACK received, command Read", 64);
    ExpectRead(otp_address, {0x00, 0xFF}, ToBytes({0xA5}));

    EXPECT_EQ(updater->GetOtp(kOtp, 1), ToBytes({0xA5}));
}

// Two bytes come while the engine waits, the third does not: each wait has the whole second.
TEST_F(OtpTest, GivesEveryByteATimeLimitOfItsOwn)
{
    ExpectRead(otp_address, {0x02, 0xFD}, {});
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
    ExpectRead(otp_address, {0x1F, 0xE0}, flood);
    EXPECT_EQ(updater->GetOtp(kOtp, 32), Bytes(32, std::byte{0x79}));
    uart.Expect({0x11, 0xEE});
    uart.Expect(otp_address);
    uart.Expect({0x1B, 0xE4});  // 3 ACKs and 28 bytes: all 31
    EXPECT_EQ(updater->GetOtp(kOtp, 28), Bytes(28, std::byte{0x79}));

    ExpectRead(otp_address, {0x01, 0xFE}, ToBytes({0xA5, 0x5A}));
    EXPECT_EQ(updater->GetOtp(kOtp, 2), ToBytes({0xA5, 0x5A}));
    EXPECT_SCRIPT_DONE();
}

// Every received byte releases a wake-up, and bytes that were there already use none. Those left
// over are neither taken for bytes nor end the wait early.
TEST_F(OtpTest, IgnoresWakeUpsThatAreLeftOver)
{
    for (int i = 0; i < 8; ++i) {
        ExpectRead(otp_address, {0x1F, 0xE0}, PatternImage(32));
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
