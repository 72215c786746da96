// How often a block is repeated that the unit refuses: ten times, whichever step it refuses.
#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class NackTest : public UpdaterTest {
protected:
    void SetUp() override
    {
        Rebuild({.mass_erase = true});
        Connect();
        ExpectGetVersion();
        ExpectExtendedErase({0xFF, 0xFF, 0x00});
    }

    void ExpectCommandNacks(int count)
    {
        for (int i = 0; i < count; ++i) {
            uart.Expect({0x31, 0xCE}).Answer({0x1F});
        }
    }

    void ExpectAddressNacks(int count)
    {
        for (int i = 0; i < count; ++i) {
            uart.Expect({0x31, 0xCE}).Answer({0x79});
            uart.Expect({0x08, 0x00, 0x00, 0x00, 0x08}).Answer({0x1F});
        }
    }

    void ExpectDataNacks(int count)
    {
        for (int i = 0; i < count; ++i) {
            ExpectWriteUpToData({0x08, 0x00, 0x00, 0x00, 0x08}, First()).Answer({0x1F});
        }
    }

    // Both blocks of the image are accepted.
    void ExpectSuccess()
    {
        ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, First());
        ExpectTrailer();
        bool updated = false;
        EXPECT_THAT(Printed([&] { updated = Update(image); }), IsEmpty());
        EXPECT_TRUE(updated);
        EXPECT_SCRIPT_DONE();
    }

    void ExpectTrailer() { ExpectWrite({0x08, 0x00, 0x00, 0x08, 0x00}, TrailerBytes()); }

    void ExpectUpdateFails()
    {
        bool updated = true;
        auto const printed = Printed([&] { updated = Update(image); });
        EXPECT_FALSE(updated);
        EXPECT_THAT(printed, IsFailure("10 NACKs received, command Write"));
        EXPECT_THAT(log.Lines(), ElementsAre(LogLine{3, printed.substr(1)}));
        EXPECT_SCRIPT_DONE();
    }

    Bytes First() const { return Slice(image, 0, 8); }
    static Bytes TrailerBytes() { return ToBytes({0x39, 0x40, 0x47, 0x4E, 0x05, 0, 0, 0}); }

    Bytes const image = PatternImage(16);
};

TEST_F(NackTest, RepeatsACommandThatIsRefusedTenTimes)
{
    ExpectCommandNacks(10);
    ExpectSuccess();
}

TEST_F(NackTest, GivesUpAtTheEleventhRefusalOfTheCommand)
{
    ExpectCommandNacks(11);
    ExpectUpdateFails();
}

TEST_F(NackTest, RepeatsFromTheCommandWhenTheAddressIsRefusedTenTimes)
{
    ExpectAddressNacks(10);
    ExpectSuccess();
}

TEST_F(NackTest, GivesUpAtTheEleventhRefusalOfTheAddress)
{
    ExpectAddressNacks(11);
    ExpectUpdateFails();
}

TEST_F(NackTest, RepeatsTheWholeBlockWhenTheDataAreRefusedTenTimes)
{
    ExpectDataNacks(10);
    ExpectSuccess();
}

TEST_F(NackTest, GivesUpAtTheEleventhRefusalOfTheData)
{
    ExpectDataNacks(11);
    ExpectUpdateFails();
}

TEST_F(NackTest, GivesUpWhenTheCommandIsRefusedAfterTenRefusalsOfTheData)
{
    ExpectDataNacks(10);
    ExpectCommandNacks(1);
    ExpectUpdateFails();
}

TEST_F(NackTest, GivesUpWhenTheAddressIsRefusedAfterTenRefusalsOfTheData)
{
    ExpectDataNacks(10);
    ExpectAddressNacks(1);
    ExpectUpdateFails();
}

TEST_F(NackTest, GivesUpWhenTheDataAreRefusedAfterTenRefusalsOfTheCommand)
{
    ExpectCommandNacks(10);
    ExpectDataNacks(1);
    ExpectUpdateFails();
}

TEST_F(NackTest, CountsRefusalsOfAllThreeStepsTogether)
{
    ExpectCommandNacks(4);
    ExpectAddressNacks(3);
    ExpectDataNacks(3);
    ExpectCommandNacks(1);
    ExpectUpdateFails();
}

TEST_F(NackTest, CountsAnewForTheTrailer)
{
    ExpectCommandNacks(10);
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, First());
    ExpectCommandNacks(10);
    ExpectTrailer();

    EXPECT_TRUE(Update(image));
    EXPECT_SCRIPT_DONE();
}

TEST_F(NackTest, CountsAnewAfterEachBlockThatWasAccepted)
{
    auto const long_image = PatternImage(512 + 8);
    ExpectCommandNacks(10);
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, Slice(long_image, 0, 256));
    ExpectCommandNacks(10);
    ExpectWrite({0x08, 0x00, 0x01, 0x00, 0x09}, Slice(long_image, 256, 256));
    ExpectCommandNacks(11);
    bool updated = true;

    auto const printed = Printed([&] { updated = Update(long_image); });

    EXPECT_FALSE(updated);
    EXPECT_THAT(printed, IsFailure("10 NACKs received, command Write"));
    EXPECT_SCRIPT_DONE();
}

TEST_F(NackTest, DoesNotRepeatAfterAnInvalidAnswer)
{
    uart.Expect({0x31, 0xCE}).Answer({0x55});
    bool updated = true;

    auto const printed = Printed([&] { updated = Update(image); });

    EXPECT_FALSE(updated);
    EXPECT_THAT(printed, IsFailure("Invalid ACK/NACK received 0x55, command Write"));
    EXPECT_SCRIPT_DONE();
}

}  // namespace
}  // namespace stm32_updater::test
