// The addresses of an STM32 unit and the image's place in its flash.
#include <QStringList>
#include <algorithm>
#include <chrono>

#include "bundle_check/checks.h"
#include "bundle_check/chips.h"
#include "modules/stm32_updater/limits.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

// What the program examines.
constexpr size_t kWholeOtpArea = kOtpRecords * kOtpRecordSize;

template <typename Predicate>
std::vector<Chip> Filter(std::vector<Chip> chips, Predicate predicate)
{
    std::erase_if(chips, [&](Chip const& chip) { return !predicate(chip); });
    return chips;
}

// The chips that the configuration can be for, by where it says that the OTP area lies.
std::vector<Chip> GetPossibleChips(Config const& config)
{
    return GetChipsByOtp(config.Number(config_keys::kOtpAddress));
}

// What to write instead of an address outside flash. The digits may have been meant as hexadecimal.
QString SuggestFlash(Config const& config, Key const& key, std::vector<Chip> const& chips)
{
    auto digits = config.Value(key).toString().trimmed();
    bool is_number = false;
    auto const address = digits.toUInt(&is_number, 16);
    auto const in_flash = [&](Chip const& chip) { return chip.HasFlashAt(address); };
    return is_number && !digits.startsWith(u"0x"_s) && std::ranges::any_of(chips, in_flash)
               ? u"For hexadecimal write %1."_s.arg(Hex(address))
               : u"It begins at %1."_s.arg(Hex(chips.front().flash.flash_start));
}

// "0x1fff7000 on the chips 0x469, 0x479, or 0x0bfa0000 on the chip 0x482"
QString DescribeOtpAreas()
{
    QStringList areas;
    for (auto const& chip : GetChips()) {
        auto const start = chip.memories.otp_start;
        auto const area = u"%1 on %2"_s.arg(Hex(start), Name(GetChipsByOtp(start)));
        if (!areas.contains(area)) {
            areas.append(area);
        }
    }
    return areas.join(u", or "_s);
}

// The smallest unit in which one of the chips programs its flash, in bytes.
uint32_t GetFlashUnit(std::vector<Chip> const& chips)
{
    auto const get_unit = [](Chip const& chip) { return chip.Figures().unit; };
    return get_unit(std::ranges::min(chips, {}, get_unit));
}

void CheckInFlash(Config const& config, Key const& key, Findings& findings)
{
    auto const chips = GetPossibleChips(config);
    auto const address = config.Number(key);
    auto const in_flash = [&](Chip const& chip) { return chip.HasFlashAt(address); };
    if (config.HoldsNumber(key) && std::ranges::none_of(chips, in_flash)) {
        findings.Fail(config.PlaceOf(key),
                      u"%1 is not in the flash of %2. %3"_s.arg(Hex(address), Name(chips),
                                                                SuggestFlash(config, key, chips)));
    }
}

void CheckProgrammingAddress(Config const& config, Findings& findings)
{
    auto const& key = config_keys::kProgrammingAddress;
    auto const address = config.Number(key);
    CheckInFlash(config, key, findings);
    auto const unit = GetFlashUnit(GetPossibleChips(config));
    if (config.HoldsNumber(key) && address % unit != 0) {
        findings.Fail(
            config.PlaceOf(key),
            u"%1 is not a multiple of %2. Flash is programmed %2 bytes at a time, so the unit does "
            "not store the firmware; choose a multiple of %2."_s.arg(Hex(address),
                                                                     QString::number(unit)));
    }
    auto const start = GetPossibleChips(config).front().flash.flash_start;
    if (config.Type() == TargetUart && address > start &&
        GetPossibleChips(config).back().HasFlashAt(address)) {
        findings.Warn(
            config.PlaceOf(key),
            u"The program erases as many pages as the image has, starting at %1, but writes at %2, "
            "so the end of the image is written to pages that were not erased. Link the image for "
            "%1, and write %1 here."_s.arg(Hex(start), Hex(address)));
    }
}

void CheckStartAddress(Config const& config, Findings& findings)
{
    auto const& key = config_keys::kStartAddress;
    auto const address = config.Number(key);
    CheckInFlash(config, key, findings);
    if (config.HoldsNumber(key) && address % stm32_updater::kWordSize != 0) {
        findings.Warn(config.PlaceOf(key),
                      u"%1 is not a multiple of 4, but firmware begins with two words, the stack "
                      "pointer and the address to start at; write the address of the image's "
                      "vector table."_s.arg(Hex(address)));
    }
}

void CheckBootModeAddress(Config const& config, Findings& findings)
{
    auto const& key = config_keys::kBootModeAddress;
    if (!config.HoldsNumber(key)) {
        return;
    }
    auto const address = config.Number(key);
    auto const place = config.PlaceOf(key);
    auto const chips = GetPossibleChips(config);
    auto const in_ram = [&](Chip const& chip) {
        return chip.HasRamAt(uint64_t{address} + stm32_updater::kWordSize - 1);
    };
    auto const in_flash = [&](Chip const& chip) { return chip.HasFlashAt(address); };
    if (std::ranges::any_of(chips, in_flash)) {
        findings.Warn(place,
                      u"%1 is in flash, where the marker can be written only once between two "
                      "erases; choose an address in RAM."_s.arg(Hex(address)));
    } else if (std::ranges::none_of(chips, in_ram)) {
        findings.Fail(
            place,
            u"%1 is in neither the RAM nor the flash of %2; choose an address "
            "from %3 on."_s.arg(Hex(address), Name(chips), Hex(kRamStart + kBootloaderRamSize)));
    } else if (address < kRamStart + kBootloaderRamSize) {
        // An error, because it works with no unit. The bootloader refuses to write there (see
        // kBootloaderRamSize), and the program, which writes the marker before it sends Go, then
        // does not even start the firmware. A bootloader that did accept the marker would overwrite
        // it with its own data.
        findings.Fail(
            place,
            u"%1 is in the RAM below %2, which the bootloader itself uses, so the marker "
            "never reaches the firmware; choose an address from %2 on. The window shows "
            "DONE nevertheless."_s.arg(Hex(address), Hex(kRamStart + kBootloaderRamSize)));
    }
    if (address % stm32_updater::kWordSize != 0) {
        findings.Fail(
            place,
            u"%1 is not a multiple of 4, but the bootloader writes only whole words; choose "
            "a multiple of 4."_s.arg(Hex(address)));
    }
}

void CheckOtp(Config const& config, Findings& findings)
{
    auto const& key = config_keys::kOtpAddress;
    auto const address = config.Number(key);
    auto const size = config.Number(config_keys::kOtpSize);
    auto const chips = GetPossibleChips(config);
    if (config.IsService() || !config.HoldsNumber(key)) {
        return;
    }
    auto const is_otp = [&](uint64_t byte) {
        return std::ranges::any_of(chips, [=](Chip const& chip) { return chip.HasOtpAt(byte); });
    };
    if (!is_otp(address)) {
        findings.Warn(config.PlaceOf(key),
                      u"%1 is not in the one-time-programmable area of any supported chip; use "
                      "%2."_s.arg(Hex(address), DescribeOtpAreas()));
    } else if (size > 0 && !is_otp(uint64_t{address} + size - 1)) {
        findings.Warn(config.PlaceOf(config_keys::kOtpSize),
                      u"%1 bytes from %2 reach beyond the one-time-programmable area of %3; use "
                      "%4."_s.arg(QString::number(size), Hex(address), Name(chips),
                                  QString::number(kWholeOtpArea)));
    }
}

void CheckOtpSize(Config const& config, Findings& findings)
{
    auto const& key = config_keys::kOtpSize;
    auto const size = config.Number(key);
    if (config.IsService() || !config.HoldsNumber(key)) {
        return;
    }
    auto const advice = u"use %1."_s.arg(kWholeOtpArea);
    if (size < kOtpRecordSize) {
        findings.Fail(
            config.PlaceOf(key),
            u"%1 bytes do not hold a record of %2 bytes, so every unit is refused; %3"_s.arg(
                QString::number(size), QString::number(kOtpRecordSize), advice));
    } else if (size < kWholeOtpArea) {
        findings.Warn(
            config.PlaceOf(key),
            u"The program looks for the model identifier in %1 bytes but reads only %2; %3"_s.arg(
                QString::number(kWholeOtpArea), QString::number(size), advice));
    }
}

std::vector<Chip> GetSlower(std::vector<Chip> const& chips, uint64_t size, double seconds)
{
    return Filter(chips, [=](Chip const& chip) {
        return static_cast<double>(chip.PagesOf(size)) * chip.Figures().page_erase_seconds >
               seconds;
    });
}

// "On CHIPS the image covers N pages, which take about S s to erase"
// With so many digits that the time is on the right side of what the program waits, whatever the
// number of pages.
QString DescribeErase(std::vector<Chip> const& chips, uint64_t size)
{
    auto const pages = chips.front().PagesOf(size);
    auto const seconds = static_cast<double>(pages) * chips.front().Figures().page_erase_seconds;
    return u"On %1 the image covers %2 pages, which take about %3 s to erase"_s.arg(
        Name(chips), QString::number(pages), QString::number(seconds, 'f', 3));
}

// It is not known here which of the two erase commands the unit's bootloader lists. If it lists the
// short one, the program uses that and gives it no longer than any other command.
void CheckEraseTime(Place const& place, std::vector<Chip> const& chips, uint64_t size,
                    Findings& findings)
{
    using Seconds = std::chrono::duration<double>;
    constexpr auto kExtended = Seconds(stm32_updater::kExtendedEraseTimeout).count();
    constexpr auto kShort = Seconds(stm32_updater::kAnswerTimeout).count();
    auto const hopeless = GetSlower(chips, size, kExtended);
    auto const slow = GetSlower(chips, size, kShort);
    if (!hopeless.empty()) {
        findings.Fail(
            place,
            u"%1; the program waits only %2 s, so the update fails. Make the image smaller."_s.arg(
                DescribeErase(hopeless, size), QString::number(kExtended)));
    } else if (!slow.empty()) {
        findings.Note(
            place,
            u"%1. A bootloader that lists the short Erase command has %2 s for it, enough for %3 "
            "pages, so the update fails with such a unit; one that lists only Extended Erase has "
            "%4 s. Find out which of them the unit's bootloader lists, or make the image smaller."_s
                .arg(DescribeErase(slow, size), QString::number(kShort),
                     QString::number(
                         static_cast<int>(kShort / slow.front().Figures().page_erase_seconds)),
                     QString::number(kExtended)));
    }
}

void CheckPageCount(Place const& place, std::vector<Chip> const& chips, uint64_t size,
                    Findings& findings)
{
    constexpr uint64_t kMostPages = stm32_updater::kMaxShortErasePages;
    auto const exceeding =
        Filter(chips, [=](Chip const& chip) { return chip.PagesOf(size) > kMostPages; });
    if (!exceeding.empty()) {
        findings.Warn(
            place,
            u"On %1 the image covers %2 pages, but the short Erase command can name only %3 (its "
            "count byte for %4 means the whole flash): the update fails with a unit whose "
            "bootloader lists that command. Find out whether it does, or make the image smaller."_s
                .arg(Name(exceeding), QString::number(exceeding.front().PagesOf(size)),
                     QString::number(kMostPages), QString::number(kMostPages + 1)));
    }
}

// "The image has N bytes, and the flash of CHIPS is programmed M bytes at a time"
QString DescribeUnits(std::vector<Chip> const& chips, uint64_t size)
{
    return u"The image has %1 bytes, and the flash of %2 is programmed %3 bytes at a time"_s.arg(
        QString::number(size), Name(chips), QString::number(GetFlashUnit(chips)));
}

// The trailer, which is written by itself, must not begin in the middle of a programming unit: the
// unit would be programmed twice. If it does not fill one either, only some bootloaders store it.
// Of a chip that is not known, only what no chip takes is reported, here and below.
void CheckTrailerUnits(Place const& place, std::vector<Chip> const& chips, uint64_t size,
                       Findings& findings)
{
    constexpr uint64_t kWord = stm32_updater::kWordSize;
    constexpr uint64_t kTrailer = stm32_updater::kTrailerSize;
    auto const begin = (size + kWord - 1) / kWord * kWord - kTrailer;
    auto const unit = GetFlashUnit(chips);
    auto const splits_unit = [=](Chip const& chip) { return begin % chip.Figures().unit != 0; };
    if (std::ranges::all_of(chips, splits_unit)) {
        auto const rest = kTrailer % unit;
        findings.Fail(
            place,
            u"%1. The last %2 bytes are written separately and do not begin at a multiple of that, "
            "so the unit does not store them, and the window shows DONE nevertheless. Fill the "
            "image up to a size that is %3a multiple of %4."_s.arg(
                DescribeUnits(chips, size), QString::number(kTrailer),
                rest == 0 ? QString() : u"%1 more than "_s.arg(rest), QString::number(unit)));
    } else if (kTrailer % unit != 0) {
        // Such a chip takes no better size, so this leaves the bundle clean.
        findings.Note(
            place,
            u"%1. The last %2 bytes are written separately and are fewer than that. Not every "
            "bootloader stores them, and the window shows DONE nevertheless. Compare the flash of "
            "a real unit with the image."_s.arg(DescribeUnits(chips, size),
                                                QString::number(kTrailer)));
    }
}

void CheckWholeUnits(Place const& place, std::vector<Chip> const& chips, uint64_t size,
                     Findings& findings)
{
    auto const unit = GetFlashUnit(chips);
    if (size % unit != 0) {
        findings.Warn(
            place,
            u"%1. Not every bootloader stores an incomplete end (here %2 of %3 bytes). "
            "Fill the image up to a multiple of %3 bytes."_s.arg(
                DescribeUnits(chips, size), QString::number(size % unit), QString::number(unit)));
    }
}

// Compares the jump and the marker with what is in flash by then.
void CheckAgainstImage(Config const& config, uint64_t size, Findings& findings)
{
    auto const begin = uint64_t{config.Number(config_keys::kProgrammingAddress)};
    auto const covers = [&](uint64_t address) {
        return address >= begin && address < begin + size;
    };
    auto const& start = config_keys::kStartAddress;
    auto const chips = GetPossibleChips(config);
    // An address outside flash has been reported.
    bool const is_in_flash = std::ranges::any_of(
        chips, [&](Chip const& chip) { return chip.HasFlashAt(config.Number(start)); });
    if (config.HoldsNumber(start) && is_in_flash && !covers(config.Number(start))) {
        findings.Warn(config.PlaceOf(start),
                      u"The unit is started at %1, outside the image; to start the new firmware "
                      "write %2."_s.arg(Hex(config.Number(start)), Hex(begin)));
    }
    auto const& marker = config_keys::kBootModeAddress;
    if (config.HoldsNumber(marker) && covers(config.Number(marker))) {
        findings.Fail(config.PlaceOf(marker),
                      u"The marker is written to %1, into the image that was just written; choose "
                      "an address in RAM."_s.arg(Hex(config.Number(marker))));
    }
}

}  // namespace

void CheckAddresses(Config const& config, Findings& findings)
{
    if (config.Type() == TargetMcubootSerial) {
        return;
    }
    CheckProgrammingAddress(config, findings);
    CheckStartAddress(config, findings);
    CheckBootModeAddress(config, findings);
    CheckOtp(config, findings);
    CheckOtpSize(config, findings);
}

void CheckImageInFlash(Config const& config, uint64_t size, Findings& findings)
{
    auto const& key = config_keys::kProgrammingAddress;
    auto const place = config.PlaceOf(config_keys::kFirmwareFilename);
    auto const begin = uint64_t{config.Number(key)};
    auto const chips = GetPossibleChips(config);
    // An address outside flash has been reported; the image is then measured by itself.
    bool const lies_in_flash = chips.back().HasFlashAt(begin);
    auto const fitting = Filter(chips, [=](Chip const& chip) {
        auto const room = lies_in_flash ? chip.flash.flash_end - begin + 1 : chip.FlashSize();
        return chip.HasFlashAt(lies_in_flash ? begin : chip.flash.flash_start) && size <= room;
    });
    if (fitting.empty()) {
        findings.Fail(place,
                      u"The image has %1 bytes, more than fit into the flash of %2%3; make the "
                      "firmware smaller."_s.arg(
                          QString::number(size), Name(chips),
                          lies_in_flash ? u" from %1 on"_s.arg(Hex(begin)) : QString()));
    }
    if (config.Type() == TargetUart) {
        auto const& erased = fitting.empty() ? chips : fitting;
        CheckEraseTime(place, erased, size, findings);
        CheckPageCount(place, erased, size, findings);
        CheckTrailerUnits(place, chips, size, findings);
    } else {
        CheckWholeUnits(place, chips, size, findings);
    }
    if (lies_in_flash && config.HoldsNumber(key)) {
        CheckAgainstImage(config, size, findings);
    }
}

}  // namespace bundle_check
