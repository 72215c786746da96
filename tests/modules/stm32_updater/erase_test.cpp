// Which erase command an update uses, and which pages it names.
#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using ::testing::ElementsAre;

class EraseTest : public UpdaterTest {
protected:
    // The unit refuses the page list, which ends the update before anything is written: these
    // tests look at the list only.
    void ExpectUpdateEndsAtTheErase(size_t image_size, std::string const& command)
    {
        bool updated = true;
        auto const image = PatternImage(image_size);
        auto const printed = Printed([&] { updated = Update(image); });
        EXPECT_FALSE(updated);
        EXPECT_THAT(printed, IsFailure("NACK received, command " + command));
        EXPECT_SCRIPT_DONE();
    }

    void ExpectErasePages(std::initializer_list<int> frame)
    {
        ExpectGetVersion();
        uart.Expect({0x43, 0xBC}).Answer({0x79});
        uart.Expect(frame).Answer({0x1F});
    }

    void ExpectExtendedErasePages(std::initializer_list<int> frame)
    {
        ExpectGetVersion();
        uart.Expect({0x44, 0xBB}).Answer({0x79});
        uart.Expect(frame).Answer({0x1F});
    }

    void ConnectTo(std::initializer_list<int> commands, Options options = {})
    {
        Rebuild(options);
        Connect(commands);
    }
};

TEST_F(EraseTest, ErasesTheOnePageOfAShortImage)
{
    ConnectTo(kEraseCommands);
    ExpectErasePages({0x00, 0x00, 0x00});
    ExpectUpdateEndsAtTheErase(16, "Erase");
}

TEST_F(EraseTest, ErasesExactlyThePagesOfAnImageThatFillsThem)
{
    ConnectTo(kEraseCommands);
    ExpectErasePages({0x02, 0x00, 0x01, 0x02, 0x01});
    ExpectUpdateEndsAtTheErase(3 * 2048, "Erase");
}

TEST_F(EraseTest, ErasesOneMorePageForFourMoreBytes)
{
    ConnectTo(kEraseCommands);
    ExpectErasePages({0x03, 0x00, 0x01, 0x02, 0x03, 0x03});
    ExpectUpdateEndsAtTheErase(3 * 2048 + 4, "Erase");
}

TEST_F(EraseTest, ExtendedErasesTheOnePageOfAShortImage)
{
    ConnectTo(kExtendedEraseCommands);
    ExpectExtendedErasePages({0x00, 0x00, 0x00, 0x00, 0x00});
    ExpectUpdateEndsAtTheErase(16, "Erase Ext");
}

TEST_F(EraseTest, ExtendedErasesExactlyThePagesOfAnImageThatFillsThem)
{
    ConnectTo(kExtendedEraseCommands);
    ExpectExtendedErasePages({0x00, 0x02, 0x00, 0x00, 0x00, 0x01, 0x00, 0x02, 0x01});
    ExpectUpdateEndsAtTheErase(3 * 2048, "Erase Ext");
}

TEST_F(EraseTest, ExtendedErasesOneMorePageForFourMoreBytes)
{
    ConnectTo(kExtendedEraseCommands);
    ExpectExtendedErasePages({0x00, 0x03, 0x00, 0x00, 0x00, 0x01, 0x00, 0x02, 0x00, 0x03, 0x03});
    ExpectUpdateEndsAtTheErase(3 * 2048 + 4, "Erase Ext");
}

TEST_F(EraseTest, CountsPagesOfEightKibibytesOnTheBiggestChip)
{
    Connect(kExtendedEraseCommands, 0x82);
    ExpectExtendedErasePages({0x00, 0x00, 0x00, 0x00, 0x00});
    ExpectUpdateEndsAtTheErase(8192, "Erase Ext");
    ExpectExtendedErasePages({0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x00});
    ExpectUpdateEndsAtTheErase(8196, "Erase Ext");
}

TEST_F(EraseTest, CountsPagesOfTwoKibibytesOnTheOtherSmallChip)
{
    Connect(kExtendedEraseCommands, 0x79);
    ExpectExtendedErasePages({0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x00});
    ExpectUpdateEndsAtTheErase(4096, "Erase Ext");
}

TEST_F(EraseTest, PrefersEraseWhereBothCommandsAreListed)
{
    ConnectTo({0x00, 0x01, 0x02, 0x44, 0x43});
    ExpectErasePages({0x00, 0x00, 0x00});
    ExpectUpdateEndsAtTheErase(16, "Erase");
}

TEST_F(EraseTest, MassErasesWithFfFf)
{
    ConnectTo(kEraseCommands, {.mass_erase = true});
    ExpectErasePages({0xFF, 0xFF});
    ExpectUpdateEndsAtTheErase(16, "Erase");
}

TEST_F(EraseTest, ExtendedMassErasesWithFfFf00)
{
    ConnectTo(kExtendedEraseCommands, {.mass_erase = true});
    ExpectExtendedErasePages({0xFF, 0xFF, 0x00});
    ExpectUpdateEndsAtTheErase(16, "Erase Ext");
}

TEST_F(EraseTest, NamesAll256PagesInOneList)
{
    ConnectTo(kEraseCommands);
    ExpectGetVersion();
    uart.Expect({0x43, 0xBC}).Answer({0x79});
    Bytes frame{std::byte{0xFF}};
    for (int page = 0; page < 256; ++page) {
        frame.push_back(static_cast<std::byte>(page));
    }
    frame.push_back(std::byte{0xFF});  // the page numbers cancel each other out
    uart.Expect(frame).Answer({0x1F});
    ExpectUpdateEndsAtTheErase(size_t{256} * 2048, "Erase");
}

TEST_F(EraseTest, ThePageByteWrapsAbove256Pages)
{
    ConnectTo(kEraseCommands);
    ExpectGetVersion();
    uart.Expect({0x43, 0xBC}).Answer({0x79});
    Bytes frame{std::byte{0x00}};  // 257 - 1 = 0x100
    for (int page = 0; page < 256; ++page) {
        frame.push_back(static_cast<std::byte>(page));
    }
    frame.push_back(std::byte{0x00});  // page 256
    frame.push_back(std::byte{0x00});
    uart.Expect(frame).Answer({0x1F});
    ExpectUpdateEndsAtTheErase(size_t{256} * 2048 + 4, "Erase");
}

TEST_F(EraseTest, ExtendedNamesPagesAbove255WithTheirHighByte)
{
    ConnectTo(kExtendedEraseCommands);
    ExpectGetVersion();
    uart.Expect({0x44, 0xBB}).Answer({0x79});
    Bytes frame = ToBytes({0x01, 0x00});  // 257 - 1
    for (int page = 0; page < 256; ++page) {
        frame.push_back(std::byte{0x00});
        frame.push_back(static_cast<std::byte>(page));
    }
    frame.push_back(std::byte{0x01});
    frame.push_back(std::byte{0x00});
    frame.push_back(std::byte{0x00});  // 01 of the count and 01 of page 256
    uart.Expect(frame).Answer({0x1F});
    ExpectUpdateEndsAtTheErase(size_t{256} * 2048 + 4, "Erase Ext");
}

TEST_F(EraseTest, NamesThePagesFromZeroWhateverTheAddress)
{
    Connect();
    ExpectExtendedErasePages({0x00, 0x00, 0x00, 0x00, 0x00});
    bool updated = true;
    auto const image = PatternImage(16);
    Printed([&] { updated = Update(image, 0x08010000); });
    EXPECT_FALSE(updated);
    EXPECT_SCRIPT_DONE();
}

TEST_F(EraseTest, WritesWithoutErasingWhereNoEraseCommandIsListed)
{
    ConnectTo({0x00, 0x01, 0x02, 0x11, 0x21, 0x31});
    auto const image = PatternImage(16);
    ExpectGetVersion();
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, Slice(image, 0, 8));
    auto trailer = Slice(image, 8, 4);
    auto const stamp = ToBytes({0x05, 0x00, 0x00, 0x00});
    trailer.insert(trailer.end(), stamp.begin(), stamp.end());
    ExpectWrite({0x08, 0x00, 0x00, 0x08, 0x00}, trailer);

    bool updated = false;
    auto const printed = Printed([&] { updated = Update(image); });

    EXPECT_TRUE(updated);
    EXPECT_EQ(printed, "\nNo erase methods");
    EXPECT_THAT(log.Lines(), ElementsAre(LogLine{3, "No erase methods"}));
    EXPECT_SCRIPT_DONE();
}

TEST_F(EraseTest, EndsAfterASecondWhenTheEraseIsNotAnswered)
{
    ConnectTo(kEraseCommands);
    ExpectGetVersion();
    uart.Expect({0x43, 0xBC}).Answer({0x79});
    uart.Expect({0x00, 0x00, 0x00});
    auto const start = std::chrono::steady_clock::now();
    bool updated = true;
    auto const image = PatternImage(16);

    auto const printed = Printed([&] { updated = Update(image); });

    auto const elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_FALSE(updated);
    EXPECT_THAT(printed, IsFailure("receive timeout for 1 bytes, command Erase"));
    EXPECT_GE(elapsed, std::chrono::milliseconds(950));  // a coarse timer may come 5 % early
    EXPECT_LT(elapsed, std::chrono::milliseconds(3000));
}

TEST_F(EraseTest, GivesAnExtendedEraseFiveSeconds)
{
    Connect();
    ExpectGetVersion();
    uart.Expect({0x44, 0xBB}).Answer({0x79});
    uart.Expect({0x00, 0x00, 0x00, 0x00, 0x00});
    auto const start = std::chrono::steady_clock::now();
    bool updated = true;
    auto const image = PatternImage(16);

    auto const printed = Printed([&] { updated = Update(image); });

    auto const elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_FALSE(updated);
    EXPECT_THAT(printed, IsFailure("receive timeout for 1 bytes, command Erase Ext"));
    EXPECT_GE(elapsed, std::chrono::milliseconds(4750));
    EXPECT_LT(elapsed, std::chrono::milliseconds(8000));
}

}  // namespace
}  // namespace stm32_updater::test
