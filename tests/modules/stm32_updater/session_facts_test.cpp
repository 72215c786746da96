// What the engine notes about a session for support: the chip, the figures of an update, and a
// sentence for each way to fail. The texts that it prints are in the other tests.
#include "modules/stm32_updater/session_facts.h"

#include <chrono>
#include <functional>
#include <string>

#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using namespace std::chrono_literals;

Bytes const kFactsImage = PatternImage(512 + 8);

class SessionFactsTest : public UpdaterTest {
protected:
    // The unit answers `bytes` when the engine has waited for `delay`.
    void AnswerAfter(std::chrono::milliseconds delay, std::initializer_list<int> bytes)
    {
        time.arrivals.push_back([this, delay, answer = std::vector<int>(bytes)] {
            time.now += delay;
            for (int const value : answer) {
                uart.Receive({value});
            }
        });
    }

    // An update that is refused nothing up to its erase, and has to fail behind it.
    void ExpectErased()
    {
        Connect();
        ExpectGetVersion();
        ExpectExtendedErase({0x00, 0x00, 0x00, 0x00, 0x00});
    }

    std::string FailureOf(std::function<void()> const& operation)
    {
        Printed(operation);
        EXPECT_SCRIPT_DONE();
        return updater->Facts().failure;
    }
    std::string ConnectFailure()
    {
        return FailureOf([this] { EXPECT_FALSE(updater->ConnectDevice()); });
    }
    std::string UpdateFailure()
    {
        return FailureOf([this] { EXPECT_FALSE(Update(kFactsImage)); });
    }
};

TEST_F(SessionFactsTest, NameWhatAFailedConnectWaitedForAndWhatCame)
{
    uart.Expect({0x7F});
    EXPECT_EQ(ConnectFailure(), "the first byte, 0x7F: no answer within 1000 ms");

    uart.Expect({0x7F});
    AnswerAfter(7ms, {0x55});
    EXPECT_EQ(ConnectFailure(), "the first byte, 0x7F: 0x55 after 7 ms, ACK 0x79 or 0x75 expected");

    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer({0x79, 0x05, 0x31, 0x00});
    EXPECT_EQ(ConnectFailure(), "Get: 2 of 6 bytes came, then nothing for 1000 ms: 31 00");

    ExpectSync();
    uart.Expect({0x00, 0xFF}).Answer({0x79, 0x40});
    EXPECT_EQ(ConnectFailure(), "Get: 65 bytes announced, 64 at most");

    ExpectSync();
    ExpectGet(kExtendedEraseCommands, 0x22);
    EXPECT_EQ(ConnectFailure(), "Get: bootloader version 0x22 is not supported");
    EXPECT_EQ(updater->Facts().bootloader_version, 0x22);

    ExpectSync();
    ExpectGet();
    uart.Expect({0x02, 0xFD}).Answer({0x79, 0x02, 0x04, 0x69, 0x00});
    EXPECT_EQ(ConnectFailure(), "Get ID: 3 bytes announced, 2 expected");

    ExpectSync();
    ExpectGet();
    ExpectGetId(0x04, 0x10);
    EXPECT_EQ(ConnectFailure(), "Get ID: product id 0x0410 is not supported");
    EXPECT_EQ(updater->Facts().product_id, 0x0410);
}

TEST_F(SessionFactsTest, NameAddressAndBlockOfAFailedUpdate)
{
    ExpectErased();
    uart.Expect({0x31, 0xCE}).Answer({0x79});
    uart.Expect({0x08, 0x00, 0x00, 0x00, 0x08});
    EXPECT_EQ(UpdateFailure(),
              "Write Memory at 0x08000000, block 1 of 3: no answer within 1000 ms");

    ExpectErased();
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, Slice(kFactsImage, 0, 256));
    for (int i = 0; i < 11; ++i) {
        uart.Expect({0x31, 0xCE}).Answer({0x1F});
    }
    EXPECT_EQ(UpdateFailure(), "Write Memory at 0x08000100, block 2 of 3: refused 11 times (NACK)");
    EXPECT_EQ(updater->Facts().written, 256U);
    EXPECT_EQ(updater->Facts().image_size, kFactsImage.size());

    ExpectErased();
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, Slice(kFactsImage, 0, 256));
    ExpectWrite({0x08, 0x00, 0x01, 0x00, 0x09}, Slice(kFactsImage, 256, 256));
    uart.Expect({0x31, 0xCE});
    AnswerAfter(12ms, {0x42});
    EXPECT_EQ(UpdateFailure(),
              "Write Memory at 0x08000200, block 3 of 3: 0x42 after 12 ms, ACK "
              "0x79 or NACK 0x1f expected");

    Connect();
    ExpectGetVersion();
    uart.Expect({0x44, 0xBB}).Answer({0x79});
    uart.Expect({0x00, 0x00, 0x00, 0x00, 0x00});
    AnswerAfter(4s, {0x1F});
    EXPECT_EQ(UpdateFailure(), "Extended Erase: refused (NACK) after 4000 ms");

    Connect({0x00, 0x02, 0x31, 0x44});
    EXPECT_EQ(UpdateFailure(), "Get Version: the bootloader does not list this command");
}

TEST_F(SessionFactsTest, NameAddressesOutsideTheImageWithoutABlock)
{
    Connect();
    uart.Expect({0x11, 0xEE}).Answer({0x79});
    uart.Expect({0x1F, 0xFF, 0x70, 0x00, 0x90}).Answer({0x1F});
    EXPECT_EQ(FailureOf([this] { updater->GetOtp(0x1FFF7000, 32); }),
              "Read Memory at 0x1FFF7000: refused (NACK) after 0 ms");

    ExpectWrite({0x20, 0x00, 0x10, 0x00, 0x30}, ToBytes({'P', 'U', 'W', 'F'}));
    uart.Expect({0x21, 0xDE}).Answer({0x1F});
    EXPECT_EQ(FailureOf([this] { updater->ExitDfu(0x08000000, 0x20001000); }),
              "Go at 0x08000000: refused (NACK) after 0 ms");
}

TEST_F(SessionFactsTest, CountAnUpdateThatSucceeds)
{
    Connect();
    EXPECT_EQ(updater->Facts().product_id, 0x0469);
    EXPECT_EQ(updater->Facts().bootloader_version, 0x31);
    ExpectGetVersion();
    uart.Expect({0x44, 0xBB}).Answer({0x79});
    uart.Expect({0x00, 0x00, 0x00, 0x00, 0x00});
    AnswerAfter(700ms, {0x79});
    uart.Expect({0x31, 0xCE}).Answer({0x1F});
    ExpectWriteUpToData(ToBytes({0x08, 0x00, 0x00, 0x00, 0x08}), Slice(kFactsImage, 0, 256))
        .Answer({0x1F});
    ExpectWriteUpToData(ToBytes({0x08, 0x00, 0x00, 0x00, 0x08}), Slice(kFactsImage, 0, 256));
    AnswerAfter(30ms, {0x79});
    ExpectWrite({0x08, 0x00, 0x01, 0x00, 0x09}, Slice(kFactsImage, 256, 256));
    ExpectWrite({0x08, 0x00, 0x02, 0x00, 0x0A}, TrailerOf(kFactsImage));

    EXPECT_TRUE(Update(kFactsImage));
    EXPECT_SCRIPT_DONE();
    auto const& facts = updater->Facts();
    EXPECT_EQ(facts.written, kFactsImage.size());
    EXPECT_EQ(facts.erase_time, 700ms);
    EXPECT_EQ(facts.write_time, 30ms);
    EXPECT_EQ(facts.refused_blocks, 2U);
    EXPECT_EQ(facts.slowest_request, "Extended Erase");
    EXPECT_EQ(facts.slowest_answer, 700ms);
    EXPECT_EQ(facts.failure, "");
}

TEST_F(SessionFactsTest, NameNoBlockOfTheImageForTheStartOfTheNewFirmware)
{
    ExpectErased();
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, Slice(kFactsImage, 0, 256));
    ExpectWrite({0x08, 0x00, 0x01, 0x00, 0x09}, Slice(kFactsImage, 256, 256));
    ExpectWrite({0x08, 0x00, 0x02, 0x00, 0x0A}, TrailerOf(kFactsImage));
    EXPECT_TRUE(Update(kFactsImage));

    ExpectWrite({0x20, 0x00, 0x10, 0x00, 0x30}, ToBytes({'P', 'U', 'W', 'F'}));
    uart.Expect({0x21, 0xDE}).Answer({0x1F});
    EXPECT_EQ(FailureOf([this] { updater->ExitDfu(0x08000000, 0x20001000); }),
              "Go at 0x08000000: refused (NACK) after 0 ms");
    EXPECT_EQ(updater->Facts().written, kFactsImage.size()) << "the marker is not of the image";
}

TEST_F(SessionFactsTest, BeginAnewWithEachUpdate)
{
    Connect();
    ExpectGetVersion();
    uart.Expect({0x44, 0xBB}).Answer({0x79});
    uart.Expect({0x00, 0x00, 0x00, 0x00, 0x00});
    AnswerAfter(700ms, {0x79});
    uart.Expect({0x31, 0xCE});
    AnswerAfter(30ms, {0x42});
    UpdateFailure();
    ASSERT_EQ(updater->Facts().erase_time, 700ms);
    ASSERT_EQ(updater->Facts().write_time, 30ms);

    EXPECT_FALSE(Update(PatternImage(4)));

    EXPECT_EQ(updater->Facts().image_size, 4U);
    EXPECT_EQ(updater->Facts().erase_time, std::nullopt);
    EXPECT_EQ(updater->Facts().write_time, std::nullopt);
    EXPECT_EQ(updater->Facts().failure, "");
}

TEST_F(SessionFactsTest, HaveNoTimesOfWhatWasNotDone)
{
    Connect({0x00, 0x01, 0x02, 0x31});
    EXPECT_EQ(updater->Facts().erase_time, std::nullopt);
    ExpectGetVersion();
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, Slice(kFactsImage, 0, 256));
    ExpectWrite({0x08, 0x00, 0x01, 0x00, 0x09}, Slice(kFactsImage, 256, 256));
    ExpectWrite({0x08, 0x00, 0x02, 0x00, 0x0A}, TrailerOf(kFactsImage));
    Printed([this] { EXPECT_TRUE(Update(kFactsImage)); });
    EXPECT_EQ(updater->Facts().erase_time, std::nullopt) << "the unit has no erase command";
    EXPECT_EQ(updater->Facts().write_time, 0ms);

    Connect();
    ExpectGetVersion();
    uart.Expect({0x44, 0xBB}).Answer({0x1F});
    EXPECT_NE(UpdateFailure(), "");
    EXPECT_EQ(updater->Facts().erase_time, 0ms);
    EXPECT_EQ(updater->Facts().write_time, std::nullopt);
}

TEST_F(SessionFactsTest, BeginAnewWithEachConnect)
{
    uart.Expect({0x7F});
    EXPECT_NE(ConnectFailure(), "");
    Connect();
    EXPECT_EQ(updater->Facts().failure, "");
}

}  // namespace
}  // namespace stm32_updater::test
