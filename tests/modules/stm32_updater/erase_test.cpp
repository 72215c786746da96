// Which erase command an update uses, and which pages it names.
#include <algorithm>

#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using ::testing::ElementsAre;

constexpr size_t kPage = 2048;
constexpr std::initializer_list<int> kBothCommands = {0x00, 0x01, 0x02, 0x44, 0x43};

class EraseTest : public UpdaterTest {
protected:
    // The unit refuses the page list, which ends the update before anything is written: these tests
    // look at the list only.
    void ExpectPageList(bool extended, Bytes const& list, size_t image_size,
                        unsigned address = 0x08000000)
    {
        ExpectGetVersion();
        uart.Expect(extended ? ToBytes({0x44, 0xBB}) : ToBytes({0x43, 0xBC})).Answer({0x79});
        uart.Expect(list).Answer({0x1F});
        ExpectUpdateFails(
            PatternImage(image_size),
            extended ? "NACK received, command Erase Ext" : "NACK received, command Erase",
            address);
    }
};

TEST_F(EraseTest, NamesTheWholePagesThatTheImageCovers)
{
    struct {
        char const* name;
        std::initializer_list<int> commands;
        int chip;  // low byte of its product ID
        size_t image_size;
        bool extended;
        Bytes list;
    } const rows[] = {
        {"one page", kEraseCommands, 0x69, 16, false, ToBytes({0, 0, 0})},
        {"three pages", kEraseCommands, 0x69, 3 * kPage, false, ToBytes({2, 0, 1, 2, 1})},
        {"a word more", kEraseCommands, 0x69, 3 * kPage + 4, false, ToBytes({3, 0, 1, 2, 3, 3})},
        {"both commands listed", kBothCommands, 0x69, 16, false, ToBytes({0, 0, 0})},
        {"three pages, extended", kExtendedEraseCommands, 0x69, 3 * kPage, true,
         ToBytes({0, 2, 0, 0, 0, 1, 0, 2, 1})},
        {"the chip with pages of 8 KiB", kExtendedEraseCommands, 0x82, 8192, true,
         ToBytes({0, 0, 0, 0, 0})},
        {"the same, a word more", kExtendedEraseCommands, 0x82, 8196, true,
         ToBytes({0, 1, 0, 0, 0, 1, 0})},
    };
    for (auto const& [name, commands, chip, image_size, extended, list] : rows) {
        SCOPED_TRACE(name);
        Connect(commands, chip);
        ExpectPageList(extended, list, image_size);
    }
}

TEST_F(EraseTest, MassErasesWithTheEmptyList)
{
    Rebuild({.mass_erase = true});
    Connect(kEraseCommands);
    ExpectPageList(false, ToBytes({0xFF, 0xFF}), 16);
    Connect(kExtendedEraseCommands);
    ExpectPageList(true, ToBytes({0xFF, 0xFF, 0x00}), 16);
}

// One byte a page: the 257th page is page 0 again, and so is the count.
TEST_F(EraseTest, WrapsThePageByteAbove256Pages)
{
    Connect(kEraseCommands);
    Bytes pages(256);
    std::ranges::generate(pages, [page = 0]() mutable { return static_cast<std::byte>(page++); });

    // The XOR of all page numbers is 0.
    ExpectPageList(false, Join(Join(ToBytes({0xFF}), pages), ToBytes({0xFF})), 256 * kPage);
    ExpectPageList(false, Join(Join(ToBytes({0x00}), pages), ToBytes({0x00, 0x00})),
                   256 * kPage + 4);
}

TEST_F(EraseTest, NamesExtendedPagesAbove255WithTheirHighByte)
{
    Connect(kExtendedEraseCommands);
    auto list = ToBytes({0x01, 0x00});  // 257 - 1
    for (int page = 0; page < 257; ++page) {
        list = Join(std::move(list), ToBytes({page >> 8, page & 0xFF}));
    }
    list.push_back(std::byte{0x00});  // 01 of the count and 01 of page 256

    ExpectPageList(true, list, 256 * kPage + 4);
}

TEST_F(EraseTest, NamesThePagesFromZeroWhateverTheAddress)
{
    Connect();
    ExpectPageList(true, ToBytes({0, 0, 0, 0, 0}), 16, 0x08010000);
}

TEST_F(EraseTest, WritesWithoutErasingWhereNoEraseCommandIsListed)
{
    Connect({0x00, 0x01, 0x02, 0x11, 0x21, 0x31});
    auto const image = PatternImage(16);
    ExpectGetVersion();
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, Slice(image, 0, 8));
    ExpectWrite({0x08, 0x00, 0x00, 0x08, 0x00}, TrailerOf(image));

    bool updated = false;
    auto const printed = Printed([&] { updated = Update(image); });

    EXPECT_TRUE(updated);
    EXPECT_EQ(printed, "\nNo erase methods");
    EXPECT_THAT(log.Lines(), ElementsAre(LogLine{3, "No erase methods"}));
    EXPECT_SCRIPT_DONE();
}

}  // namespace
}  // namespace stm32_updater::test
