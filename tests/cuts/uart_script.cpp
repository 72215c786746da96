#include "tests/cuts/uart_script.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "simulator/chips/otp_image.h"
#include "tests/support/pattern_image.h"

namespace cuts {
namespace {

using namespace std::chrono_literals;
using simulator::EraseCommands;
using Step = UartWait::Step;
using Effect = UartWait::Effect;

constexpr size_t kBlock = 256;
constexpr size_t kRead = 32;
constexpr std::array kTrailerEnd{std::byte{1}, std::byte{0}, std::byte{0}, std::byte{0}};

std::vector<std::byte> MakeOtp()
{
    simulator::OtpImage otp(kUartOtpSize);
    otp.SetRecord(0, 0x3CA6A4AF, std::array{std::byte{'A'}, std::byte{'7'}});
    otp.SetModelId(2, kUartModel);
    return otp.Bytes();
}

// A chip with two pages of flash, which is enough and quick to compare.
simulator::Chip MakeSmallChip(uint16_t product_id)
{
    auto chip = simulator::FindChip(product_id).value();
    chip.flash_size = 2 * chip.page_size;
    return chip;
}

UartSetup MakeSetup(uint16_t product_id, EraseCommands erase, bool is_standard, uint8_t version)
{
    constexpr std::array kNames{"Erase", "Extended Erase", "both", "no erase command"};
    UartSetup setup;
    setup.name = fmt::format("0x{:03x}, {}, {} answers, version 0x{:02x}", product_id,
                             kNames.at(static_cast<size_t>(erase)),
                             is_standard ? "standard" : "alternative", version);
    setup.unit.chip = MakeSmallChip(product_id);
    setup.unit.protocol_version = version;
    setup.unit.commands = simulator::ListCommands(erase);
    setup.unit.ack_pair =
        is_standard ? simulator::kStandardAckPair : simulator::kAlternativeAckPair;
    setup.unit.otp = MakeOtp();
    setup.unit.boot_mode_address = kUartMarkerAddress;
    setup.unit.times = simulator::kRealTimes;
    return setup;
}

bool Lists(UartSetup const& setup, uint8_t code)
{
    return std::ranges::find(setup.unit.commands, code) != setup.unit.commands.end();
}

bool ListsErase(UartSetup const& setup)
{
    return Lists(setup, 0x43) || Lists(setup, 0x44);
}

// With a stack pointer if the unit looks at it.
std::vector<std::byte> MakeImage(UartSetup const& setup)
{
    auto image = PatternImage(kUartImageSize);
    if (setup.unit.go_checks_stack) {
        constexpr std::array kStackPointer{std::byte{0x00}, std::byte{0x10}, std::byte{0x00},
                                           std::byte{0x20}};  // 4 KiB into the RAM
        std::ranges::copy(kStackPointer, image.begin());
    }
    return image;
}

// The firmware of before, complete with its trailer, and data of its own in the second page. A unit
// without an erase command erases its flash by itself.
std::vector<std::byte> MakeFlashBefore(UartSetup const& setup)
{
    std::vector flash(setup.unit.chip.flash_size, std::byte{0xFF});
    if (ListsErase(setup)) {
        auto old = PatternImage(kUartImageSize);
        std::ranges::reverse(old);
        std::ranges::copy(kTrailerEnd, old.end() - 4);
        std::ranges::copy(old, flash.begin());
        flash[setup.unit.chip.page_size] = std::byte{0x5A};
    }
    return flash;
}

}  // namespace

std::vector<UartSetup> ListUartSetups()
{
    using enum EraseCommands;
    std::vector<UartSetup> setups;
    for (auto const& chip : simulator::kChips) {
        for (auto const erase : {kLegacy, kExtended, kBoth, kNone}) {
            for (auto const is_standard : {true, false}) {
                for (auto const version : {uint8_t{0x31}, uint8_t{0x33}}) {
                    setups.push_back(MakeSetup(chip.product_id, erase, is_standard, version));
                }
            }
        }
        for (auto const erase : {kLegacy, kExtended}) {
            auto setup = MakeSetup(chip.product_id, erase, true, 0x31);
            setup.name += ", mass erase";
            setup.mass_erase = true;
            setups.push_back(setup);
        }
    }
    setups.push_back(MakeSetup(simulator::kChips.front().product_id, kExtended, true, 0x31));
    setups.back().name += ", stray bytes ignored";
    setups.back().unit.stray_bytes_spoil_sync = false;
    setups.push_back(MakeSetup(simulator::kChips.front().product_id, kExtended, true, 0x31));
    setups.back().name += ", Go checks the stack pointer";
    setups.back().unit.go_checks_stack = true;
    setups.push_back(MakeSetup(simulator::kChips.front().product_id, kLegacy, true, 0x31));
    setups.back().name += ", FF FF refused";
    setups.back().mass_erase = true;
    setups.back().unit.accept_ff_ff_erase = false;
    return setups;
}

UartScript::UartScript(UartSetup const& setup)
    : setup_(setup), image_(MakeImage(setup)), flash_before_(MakeFlashBefore(setup))
{
    AddConnect();
    for (size_t read = 0; read < kUartOtpSize; read += kRead) {
        waits_.push_back({Step::kOtp, "Read", 2, 1});
        waits_.push_back({Step::kOtp, "Read", 5, 1});
        waits_.push_back({Step::kOtp, "Read", 2, 1});
        waits_.push_back({Step::kOtp, "Read", 0, kRead});
    }
    waits_.push_back({Step::kUpdate, "Get Ver Rops", 2, 1});
    waits_.push_back({Step::kUpdate, "Get Ver Rops", 0, 3});
    waits_.push_back({Step::kUpdate, "Get Ver Rops", 0, 1});
    AddErase();
    constexpr auto kBody = kUartImageSize - kUartTrailerSize;
    for (size_t begin = 0; begin < kBody; begin += kBlock) {
        AddWrite(Step::kUpdate, begin, std::min(kBlock, kBody - begin));
    }
    AddWrite(Step::kUpdate, kBody, kUartTrailerSize);
    AddWrite(Step::kRestart, 0, 4);
    // The texts go on with the name of the command before. The answer to the address of Go is not
    // waited for.
    waits_.push_back({Step::kRestart, "Write", 2, 1});
    waits_.push_back({Step::kRestart, "Write", 5, 0});
}

void UartScript::AddConnect()
{
    waits_.push_back({Step::kConnect, "Init con", 1, 1});
    for (auto const& [command, size] :
         {std::pair("Get", 1 + setup_.unit.commands.size()), std::pair("Get ID", size_t{2})}) {
        waits_.push_back({Step::kConnect, command, 2, 1});
        waits_.push_back({Step::kConnect, command, 0, 1});
        waits_.push_back({Step::kConnect, command, 0, size});
        waits_.push_back({Step::kConnect, command, 0, 1});
    }
}

void UartScript::AddErase()
{
    if (Lists(setup_, 0x43)) {
        waits_.push_back({Step::kUpdate, "Erase", 2, 1});
        size_t const list = setup_.mass_erase ? 2 : 3;
        auto const effect = RefusesErase() ? Effect::kNone : Effect::kErase;
        waits_.push_back({Step::kUpdate, "Erase", list, 1, effect});
    } else if (Lists(setup_, 0x44)) {
        waits_.push_back({Step::kUpdate, "Erase Ext", 2, 1});
        size_t const list = setup_.mass_erase ? 3 : 5;
        waits_.push_back({Step::kUpdate, "Erase Ext", list, 1, Effect::kErase, 0, 0, 5s});
    }
}

void UartScript::AddWrite(Step step, size_t begin, size_t size)
{
    auto const effect = step == Step::kUpdate ? Effect::kWrite : Effect::kNone;
    waits_.push_back({step, "Write", 2, 1});
    waits_.push_back({step, "Write", 5, 1});
    waits_.push_back({step, "Write", 1 + size + 1, 1, effect, begin, size});
}

size_t UartScript::Find(Direction direction, size_t position) const
{
    size_t end = 0;
    for (size_t i = 0; i < waits_.size(); ++i) {
        end += direction == Direction::kToUnit ? waits_[i].to_unit : waits_[i].to_host;
        if (position < end) {
            return i;
        }
    }
    return waits_.size() - 1;
}

std::vector<std::byte> UartScript::FlashAfter(size_t waits, std::vector<std::byte> flash) const
{
    auto image = image_;
    std::ranges::copy(kTrailerEnd, image.end() - 4);
    for (size_t i = 0; i < waits; ++i) {
        auto const& wait = waits_[i];
        auto const begin = static_cast<std::ptrdiff_t>(wait.begin);
        if (wait.effect == Effect::kErase) {
            auto const size = setup_.mass_erase ? flash.size() : setup_.unit.chip.page_size;
            std::fill_n(flash.begin(), size, std::byte{0xFF});
        } else if (wait.effect == Effect::kWrite) {
            std::copy_n(image.begin() + begin, wait.size, flash.begin() + begin);
        }
    }
    return flash;
}

bool UartScript::HasTrailer(std::vector<std::byte> const& flash)
{
    return std::equal(kTrailerEnd.begin(), kTrailerEnd.end(), flash.begin() + kUartImageSize - 4);
}

std::optional<std::string> FindCommand(std::string const& text)
{
    constexpr std::array kNamingOne{"receive timeout for ",      "NACK received",
                                    "Invalid ACK/NACK received", "Invalid ACK byte setup",
                                    "Too many bytes to receive", "Invalid DFU version",
                                    "10 NACKs received"};
    constexpr std::array kOfOne{std::pair{"protocol version wrong: 0x", "Get"},
                                std::pair{"Too many bytes, not ", "Get ID"},
                                std::pair{"product ID not supported: 0x", "Get ID"}};
    for (auto const& [beginning, command] : kOfOne) {
        if (text.starts_with(beginning)) {
            return command;
        }
    }
    constexpr std::string_view kName = ", command ";
    auto const name = text.find(kName);
    bool const is_known = std::ranges::any_of(
        kNamingOne, [&](char const* beginning) { return text.starts_with(beginning); });
    return is_known && name != std::string::npos ? std::optional(text.substr(name + kName.size()))
                                                 : std::nullopt;
}

}  // namespace cuts
