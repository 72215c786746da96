#include "bundle_check/address_checks.h"

#include <QStringList>
#include <algorithm>

#include "bundle_check/prediction.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr int kHexDigits = 8;
constexpr uint32_t kWord = 4;

QString Hex(uint64_t number, int digits = kHexDigits)
{
    return u"0x"_s + QString::number(number, 16).rightJustified(digits, QLatin1Char('0'));
}

QString Name(std::vector<Chip> const& chips)
{
    QStringList names;
    for (auto const& chip : chips) {
        names.append(Hex(chip.memories.product_id, 3));
    }
    return (names.size() == 1 ? u"the chip "_s : u"the chips "_s) + names.join(u", "_s);
}

template <typename Predicate>
std::vector<Chip> Filter(std::vector<Chip> chips, Predicate predicate)
{
    std::erase_if(chips, [&](Chip const& chip) { return !predicate(chip); });
    return chips;
}

constexpr int kBaseByPrefix = 0;
constexpr int kDecimal = 10;

// Whether the key holds a number: the program's 0 for anything else would only be told twice.
bool IsGiven(Config const& config, QString const& key, int base = kBaseByPrefix)
{
    bool is_number = false;
    config.Value(key).toString().toUInt(&is_number, base);
    return is_number && config.Reads(*FindKeyRule(key));
}

// UART reads two keys more than USB.
UartConfig ReadAddresses(Config const& config)
{
    return config.Type() == TargetUart ? ReadUartConfig(config.Settings())
                                       : UartConfig{ReadUsbConfig(config.Settings()), 0, 0};
}

void CheckInFlash(Config const& config, QString const& key, uint32_t address, Findings& findings)
{
    auto const chips = GetChips(config);
    auto const in_flash = [&](Chip const& chip) { return chip.HasFlashAt(address); };
    if (IsGiven(config, key) && std::ranges::none_of(chips, in_flash)) {
        findings.Fail(config.PlaceOf(key),
                      u"%1 is outside the flash of %2."_s.arg(Hex(address), Name(chips)));
    }
}

void CheckProgrammingAddress(Config const& config, Findings& findings)
{
    constexpr uint32_t kFlashUnit = 8;
    auto const key = u"programming_address"_s;
    auto const address = ReadAddresses(config).programming_address;
    CheckInFlash(config, key, address, findings);
    if (IsGiven(config, key) && address % kFlashUnit != 0) {
        findings.Fail(
            config.PlaceOf(key),
            u"%1 is not a multiple of %2, and flash is programmed by %2 bytes at a time, "
            "so the unit refuses the firmware."_s.arg(Hex(address), QString::number(kFlashUnit)));
    }
    auto const start = GetChips(config).front().flash.flash_start;
    if (config.Type() == TargetUart && address > start &&
        GetChips(config).back().HasFlashAt(address)) {
        findings.Warn(config.PlaceOf(key),
                      u"The program erases as many pages as the image has, from %1 on, and then "
                      "writes at %2: the image's end falls on pages that were not erased."_s.arg(
                          Hex(start), Hex(address)));
    }
}

void CheckStartAddress(Config const& config, Findings& findings)
{
    auto const key = u"start_address"_s;
    auto const address = ReadAddresses(config).start_address;
    CheckInFlash(config, key, address, findings);
    if (IsGiven(config, key) && address % kWord != 0) {
        findings.Warn(
            config.PlaceOf(key),
            u"%1 is not a multiple of 4, as the beginning of a firmware is: its first two "
            "words are the stack pointer and where to start."_s.arg(Hex(address)));
    }
}

void CheckBootModeAddress(Config const& config, Findings& findings)
{
    auto const key = u"boot_mode_address"_s;
    auto const address = ReadAddresses(config).boot_mode_address;
    if (!IsGiven(config, key)) {
        return;
    }
    auto const place = config.PlaceOf(key);
    auto const chips = GetChips(config);
    auto const in_ram = [&](Chip const& chip) {
        return chip.HasRamAt(uint64_t{address} + kWord - 1);
    };
    auto const in_flash = [&](Chip const& chip) { return chip.HasFlashAt(address); };
    if (std::ranges::any_of(chips, in_flash)) {
        findings.Warn(place,
                      u"%1 lies in flash, where the marker can be written only once between "
                      "two erases; RAM is meant for it."_s.arg(Hex(address)));
    } else if (std::ranges::none_of(chips, in_ram)) {
        findings.Fail(place, u"%1 is neither in the RAM nor in the flash of %2."_s.arg(
                                 Hex(address), Name(chips)));
    } else if (address < kRamStart + kBootloaderRamSize) {
        findings.Warn(
            place,
            u"%1 lies in the RAM below %2, which the bootloader keeps for itself. It "
            "refuses the marker, the new firmware is then not started, and the window "
            "says DONE all the same."_s.arg(Hex(address), Hex(kRamStart + kBootloaderRamSize)));
    }
    if (address % kWord != 0) {
        findings.Fail(place,
                      u"%1 is not a multiple of 4, and the bootloader writes whole words "
                      "only."_s.arg(Hex(address)));
    }
}

void CheckOtp(Config const& config, Findings& findings)
{
    auto const addresses = ReadAddresses(config);
    auto const chips = GetChips(config);
    auto const address_key = u"otp_address"_s;
    if (config.IsService() || !IsGiven(config, address_key)) {
        return;
    }
    auto const at = [&](uint64_t address) {
        return std::ranges::any_of(chips, [=](Chip const& chip) { return chip.HasOtpAt(address); });
    };
    if (!at(addresses.otp_address)) {
        findings.Warn(config.PlaceOf(address_key),
                      u"%1 is in the one-time-programmable area of no supported chip."_s.arg(
                          Hex(addresses.otp_address)));
    } else if (addresses.otp_size > 0 &&
               !at(uint64_t{addresses.otp_address} + addresses.otp_size - 1)) {
        findings.Warn(config.PlaceOf(u"otp_size"_s),
                      u"%1 bytes from %2 on reach beyond the one-time-programmable area of %3."_s
                          .arg(addresses.otp_size)
                          .arg(Hex(addresses.otp_address), Name(chips)));
    }
}

void CheckOtpSize(Config const& config, Findings& findings)
{
    constexpr uint32_t kRecord = 16;
    constexpr uint32_t kWholeArea = 512;
    auto const key = u"otp_size"_s;
    auto const size = ReadAddresses(config).otp_size;
    if (config.IsService() || !IsGiven(config, key, kDecimal)) {
        return;
    }
    if (size < kRecord) {
        findings.Fail(
            config.PlaceOf(key),
            u"%1 bytes hold no record of %2 bytes, so no unit is accepted."_s.arg(size).arg(
                kRecord));
    } else if (size < kWholeArea) {
        findings.Warn(config.PlaceOf(key),
                      u"The program looks for the model identifier in %1 bytes, of which only %2 "
                      "are read."_s.arg(kWholeArea)
                          .arg(size));
    }
}

std::vector<Chip> GetSlower(std::vector<Chip> const& chips, uint64_t size, double seconds)
{
    return Filter(chips, [=](Chip const& chip) {
        return static_cast<double>(chip.PagesOf(size)) * kPageEraseSeconds > seconds;
    });
}

// "On CHIPS the image covers N pages, whose erase takes about S s".
QString TellErase(std::vector<Chip> const& chips, uint64_t size)
{
    auto const pages = chips.front().PagesOf(size);
    return u"On %1 the image covers %2 pages, whose erase takes about %3 s"_s.arg(Name(chips))
        .arg(pages)
        .arg(static_cast<double>(pages) * kPageEraseSeconds, 0, 'f', 1);
}

// Which of the two commands the unit's bootloader lists is not known here.
void CheckEraseTime(Place const& place, std::vector<Chip> const& chips, uint64_t size,
                    Findings& findings)
{
    auto const hopeless = GetSlower(chips, size, kExtendedEraseWaitSeconds);
    auto const slow = GetSlower(chips, size, kShortEraseWaitSeconds);
    if (!hopeless.empty()) {
        findings.Fail(place,
                      u"%1; the program waits %2 s, and the update fails."_s.arg(
                          TellErase(hopeless, size), QString::number(kExtendedEraseWaitSeconds)));
    } else if (!slow.empty()) {
        auto const most = static_cast<int>(kShortEraseWaitSeconds / kPageEraseSeconds);
        findings.Note(
            place,
            u"%1. A bootloader that lists the short Erase command has %2 s for it, enough "
            "for %3 pages, and with such a unit the update fails; one that lists only "
            "Extended Erase has %4 s."_s.arg(TellErase(slow, size))
                .arg(kShortEraseWaitSeconds)
                .arg(most)
                .arg(kExtendedEraseWaitSeconds));
    }
}

void CheckPageNumbers(Place const& place, std::vector<Chip> const& chips, uint64_t size,
                      Findings& findings)
{
    constexpr uint64_t kPageNumbers = 256;  // of one byte
    auto const wrapping =
        Filter(chips, [=](Chip const& chip) { return chip.PagesOf(size) > kPageNumbers; });
    if (!wrapping.empty()) {
        findings.Warn(place,
                      u"On %1 the image covers %2 pages: their numbers do not fit one byte, "
                      "and with a bootloader that lists the short Erase command the first pages "
                      "are erased twice and the last ones not at all."_s.arg(Name(wrapping))
                          .arg(wrapping.front().PagesOf(size)));
    }
}

// The jump and the marker, against what will be in flash then.
void CheckAgainstImage(Config const& config, uint64_t size, Findings& findings)
{
    auto const addresses = ReadAddresses(config);
    auto const begin = uint64_t{addresses.programming_address};
    auto const covers = [&](uint64_t address) {
        return address >= begin && address < begin + size;
    };
    if (IsGiven(config, u"start_address"_s) && !covers(addresses.start_address)) {
        findings.Warn(config.PlaceOf(u"start_address"_s),
                      u"The unit is started at %1, which is not part of the image."_s.arg(
                          Hex(addresses.start_address)));
    }
    if (IsGiven(config, u"boot_mode_address"_s) && covers(addresses.boot_mode_address)) {
        findings.Fail(config.PlaceOf(u"boot_mode_address"_s),
                      u"The marker is written to %1, into the image that was just written."_s.arg(
                          Hex(addresses.boot_mode_address)));
    }
}

}  // namespace

std::vector<Chip> GetChips(Config const& config)
{
    return GetChipsByOtp(ReadAddresses(config).otp_address);
}

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
    auto const key = u"programming_address"_s;
    auto const place = config.PlaceOf(u"firmware_filename"_s);
    auto const begin = uint64_t{ReadAddresses(config).programming_address};
    auto const chips = GetChips(config);
    // An address outside flash has been told; the image is then measured by itself.
    bool const lies_in_flash = chips.back().HasFlashAt(begin);
    auto const fitting = Filter(chips, [=](Chip const& chip) {
        auto const room = lies_in_flash ? chip.flash.flash_end - begin + 1 : chip.FlashSize();
        return chip.HasFlashAt(lies_in_flash ? begin : chip.flash.flash_start) && size <= room;
    });
    if (fitting.empty()) {
        findings.Fail(
            place,
            u"The firmware file's %1 bytes are more than %2 have room for%3."_s.arg(size).arg(
                Name(chips), lies_in_flash ? u" from %1 on"_s.arg(Hex(begin)) : QString()));
    }
    if (config.Type() == TargetUart) {
        auto const& erased = fitting.empty() ? chips : fitting;
        CheckEraseTime(place, erased, size, findings);
        CheckPageNumbers(place, erased, size, findings);
    }
    if (lies_in_flash && IsGiven(config, key)) {
        CheckAgainstImage(config, size, findings);
    }
}

}  // namespace bundle_check
