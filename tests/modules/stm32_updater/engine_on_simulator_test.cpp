// The engine against the simulated bootloader, in virtual time: every chip, erase command and ACK
// pair, and every fault of the simulator at every step of a conversation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "modules/stm32_updater/stm32_uart_updater.h"
#include "runtime/dispatcher.h"
#include "tests/modules/stm32_updater/bytes.h"
#include "tests/modules/stm32_updater/simulated_line.h"
#include "tests/modules/stm32_updater/virtual_time.h"

namespace stm32_updater::test {
namespace {

using simulator::EraseCommands;
using simulator::FaultKind;
using simulator::Stm32Bootloader;
using simulator::Stm32BootloaderOptions;
using ::testing::ElementsAre;

constexpr uint32_t kFlash = 0x08000000;
constexpr uint32_t kBootMode = 0x20004000;
constexpr uint8_t kMcuId = 0x2A;

Bytes WithTrailer(Bytes image)
{
    for (size_t i = 0; i < 4; ++i) {
        image[image.size() - 4 + i] = i == 0 ? std::byte{kMcuId} : std::byte{0};
    }
    return image;
}

Stm32BootloaderOptions UnitOptions(simulator::Chip const& chip = simulator::kChips.front())
{
    Stm32BootloaderOptions options;
    options.chip = chip;
    options.otp = PatternImage(96);
    options.boot_mode_address = kBootMode;
    return options;
}

struct Result {
    bool connected = false;
    bool otp_read = false;
    bool updated = false;
    bool running = false;

    bool All() const { return connected && otp_read && updated && running; }
};

// A unit, its line, and an updater on it.
class Bench {
public:
    explicit Bench(Stm32BootloaderOptions options, bool mass_erase = false)
        : line_(std::move(options)),
          updater_([this](bool level) { line_.SetReset(level); }, [](bool) {}, line_, bus_, mutex_,
                   kMcuId, mass_erase, [] {}, [] {}, hal::uart::IUartDriver::Rate::kBootloader,
                   time_.GetWaits())
    {
        // The old firmware: not erased.
        auto const& chip = line_.Unit().Options().chip;
        line_.Unit().Memory().Load(kFlash, Bytes(4 * chip.page_size, std::byte{0xA5}));
    }

    Stm32Bootloader& Unit() { return line_.Unit(); }
    Stm32UartUpdater& Updater() { return updater_; }

    // Runs a whole session, each step even if the one before it failed.
    Result Run(Bytes const& image)
    {
        Result result;
        auto const& options = Unit().Options();
        result.connected = updater_.ConnectDevice();
        result.otp_read = updater_.GetOtp(options.chip.otp_address, 96) == options.otp;
        result.updated = updater_.Update(image, [](auto, unsigned) {});
        updater_.DisconnectDevice();
        updater_.ExitDfu(kFlash, kBootMode);
        result.running = Unit().GetState() == Stm32Bootloader::State::kRunning;
        return result;
    }

    Bytes Flash(size_t size) { return Unit().Memory().Read(kFlash, size); }

    std::vector<std::string> ErasedPages()
    {
        std::vector<std::string> pages;
        for (auto const& entry : Unit().GetJournal().Entries()) {
            if (!entry.pages.empty()) {
                pages.push_back(entry.pages);
            }
        }
        return pages;
    }

private:
    dispatcher::Dispatcher bus_{{}, 1};
    std::mutex mutex_;
    VirtualTime time_;
    SimulatedLine line_;
    Stm32UartUpdater updater_;
};

class ChipTest : public ::testing::TestWithParam<
                     std::tuple<simulator::Chip, EraseCommands, bool, bool, uint8_t>> {};

TEST_P(ChipTest, HoldsTheImageAndItsTrailerAndRunsAfterwards)
{
    auto const& [chip, erase_commands, mass_erase, alternative_ack, version] = GetParam();
    auto options = UnitOptions(chip);
    options.commands = simulator::ListCommands(erase_commands);
    options.ack_pair =
        alternative_ack ? simulator::kAlternativeAckPair : simulator::kStandardAckPair;
    options.protocol_version = version;
    Bench bench(options, mass_erase);
    auto const image = PatternImage(3 * chip.page_size + 8);

    EXPECT_TRUE(bench.Run(image).All());

    EXPECT_EQ(bench.Flash(image.size()), WithTrailer(image));
    EXPECT_EQ(bench.Unit().Memory().ProgrammedOverUnerased(), 0U);
    EXPECT_THAT(bench.ErasedPages(), ElementsAre(mass_erase ? "all" : "0-3"));
    EXPECT_EQ(bench.Unit().JumpAddress(), kFlash);
    EXPECT_EQ(bench.Unit().Marker(), ToBytes({'P', 'U', 'W', 'F'}));
}

INSTANTIATE_TEST_SUITE_P(All, ChipTest,
                         ::testing::Combine(::testing::ValuesIn(simulator::kChips),
                                            ::testing::Values(EraseCommands::kLegacy,
                                                              EraseCommands::kExtended,
                                                              EraseCommands::kBoth),
                                            ::testing::Bool(), ::testing::Bool(),
                                            ::testing::Values(uint8_t{0x31}, uint8_t{0x33})));

TEST(EngineOnSimulator, FillsTheWholeFlashOfAChip)
{
    Bench bench(UnitOptions(), true);
    auto const image = PatternImage(size_t{512} * 1024);

    EXPECT_TRUE(bench.Run(image).All());

    EXPECT_EQ(bench.Flash(image.size()), WithTrailer(image));
}

// The trailer is written by itself: 8 bytes, a whole double word of the STM32G4, but half a quad
// word of the STM32U5. So the size decides whether the flash takes it, and on the STM32U5 also what
// the bootloader makes of an incomplete quad word.
TEST(EngineOnSimulator, StoresAnImageWhollyOnlyIfItsTrailerSuitsTheFlash)
{
    constexpr simulator::WriteHabits kLoses;
    constexpr simulator::WriteHabits kFills{.fills_last_unit = true};
    constexpr simulator::WriteHabits kReports{.reports_errors = true};
    constexpr simulator::WriteHabits kFillsAndReports{.fills_last_unit = true,
                                                      .reports_errors = true};
    struct Row {
        uint16_t product_id;
        simulator::WriteHabits habits;
        std::vector<size_t> good_sizes;  // of those below
    };
    std::vector<size_t> const sizes{8, 12, 16, 20, 24, 512, 516, 520, 524};
    std::vector<size_t> const multiples_of_8{8, 16, 24, 512, 520};
    std::vector<size_t> const odd_multiples_of_8{8, 24, 520};
    for (auto const& [product_id, habits, good_sizes] :
         {Row{0x469, kLoses, multiples_of_8}, Row{0x469, kFills, multiples_of_8},
          Row{0x469, kReports, multiples_of_8}, Row{0x469, kFillsAndReports, multiples_of_8},
          Row{0x482, kLoses, {}}, Row{0x482, kFills, odd_multiples_of_8}, Row{0x482, kReports, {}},
          Row{0x482, kFillsAndReports, odd_multiples_of_8}}) {
        for (auto const size : sizes) {
            SCOPED_TRACE(::testing::Message()
                         << std::hex << product_id << std::dec << ": " << size << " bytes, fills "
                         << habits.fills_last_unit << ", reports " << habits.reports_errors);
            auto options = UnitOptions(simulator::FindChip(product_id).value());
            options.chip.write_habits = habits;
            Bench bench(options);
            auto const image = PatternImage(size);
            bool const is_good = std::ranges::find(good_sizes, size) != good_sizes.end();

            auto const result = bench.Run(image);

            EXPECT_EQ(bench.Flash(size) == WithTrailer(image), is_good);
            // Nothing is read back, so only a bootloader that reports errors ends the update.
            EXPECT_EQ(result.updated, is_good || !habits.reports_errors);
        }
    }
}

TEST(EngineOnSimulator, ErasesAtMost255PagesWithTheShortCommand)
{
    auto options = UnitOptions();
    options.commands = simulator::ListCommands(EraseCommands::kLegacy);
    auto const page_size = options.chip.page_size;
    {
        Bench bench(options);
        EXPECT_TRUE(bench.Run(PatternImage(kMaxShortErasePages * page_size)).All());
        EXPECT_THAT(bench.ErasedPages(), ElementsAre("0-254"));
    }
    // The count byte then means the whole flash, and the bootloader takes the pages for commands.
    Bench bench(options);
    EXPECT_FALSE(bench.Run(PatternImage((kMaxShortErasePages + 1) * page_size)).updated);
    EXPECT_THAT(bench.ErasedPages(), ElementsAre("all"));
}

// The parameter with which each kind has an effect.
uint32_t ParameterOf(FaultKind kind)
{
    switch (kind) {
        case FaultKind::kGarbageAnswer:
            return 0x55;
        case FaultKind::kCutAnswer:
            return 1;
        case FaultKind::kExtraByte:
            return 0xEE;
        case FaultKind::kLateAnswer:
            return 6000;
        case FaultKind::kWrongCount:
            return 64;
        case FaultKind::kFlipReadData:
            return 0x01;
        case FaultKind::kSilentInWrite:
        case FaultKind::kVanishInWrite:
            return 5;
        default:
            return 0;
    }
}

std::string NameOf(::testing::TestParamInfo<FaultKind> const& info)
{
    std::string name(simulator::GetName(info.param));
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

class FaultTest : public ::testing::TestWithParam<FaultKind> {};

// The fault matrix proves with which text an operation fails. Here success means that the flash is
// right, and nothing outlasts a reset.
TEST_P(FaultTest, NeverPassesForASuccessAndIsGoneAfterAReset)
{
    constexpr unsigned kMoreThanAllSteps = 120;
    auto const image = PatternImage(2 * 2048 + 64);
    unsigned struck = 0;
    unsigned failed = 0;
    for (unsigned at = 1; at <= kMoreThanAllSteps; ++at) {
        SCOPED_TRACE("strikes at " + std::to_string(at));
        Bench bench(UnitOptions());
        auto const holds_image = [&] { return bench.Flash(image.size()) == WithTrailer(image); };
        bench.Unit().Faults().Add({GetParam(), at, 1, ParameterOf(GetParam())});
        auto const result = bench.Run(image);
        auto const strikes = bench.Unit().Faults().Strikes();
        struck += strikes;
        failed += result.All() ? 0 : 1;
        EXPECT_TRUE(strikes > 0 || result.All());
        EXPECT_TRUE(!result.updated || holds_image());

        bench.Unit().Faults().Clear();
        EXPECT_TRUE(bench.Run(image).All());
        EXPECT_TRUE(holds_image());
    }
    EXPECT_GT(struck, 0U);
    EXPECT_LT(struck, kMoreThanAllSteps);
    // Refused writes are repeated; no other kind goes unnoticed.
    EXPECT_TRUE(failed > 0 || simulator::GetName(GetParam()).starts_with("nack-write"));
}

INSTANTIATE_TEST_SUITE_P(All, FaultTest, ::testing::ValuesIn(simulator::kStm32FaultKinds), NameOf);

}  // namespace
}  // namespace stm32_updater::test
