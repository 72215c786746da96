// The vector table of an STM32 image.
#include <algorithm>
#include <optional>

#include "bundle_check/chips.h"
#include "bundle_check/image_contents.h"
#include "modules/stm32_updater/limits.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr uint32_t kTableWord = stm32_updater::kWordSize;
// The initial stack pointer and the vectors of the processor's own exceptions; those of interrupts
// may follow (ARMv7-M and ARMv8-M Architecture Reference Manuals).
constexpr uint32_t kSmallestTable = 16 * kTableWord;
// A handler's address is odd, because a Cortex-M executes Thumb code only.
constexpr uint32_t kThumb = 1;
// The most that one exception stores at the stack's beginning, registers of the floating-point unit
// included: 26 words (ARMv7-M and ARMv8-M Architecture Reference Manuals).
constexpr uint32_t kExceptionFrame = 26 * 4;

struct VectorTable {
    uint32_t stack_pointer;
    uint32_t reset;
};

// The image and where it is in flash.
class PlacedImage {
public:
    PlacedImage(Config const& config, QByteArray const& bytes)
        : chips_(GetChipsByOtp(config.Number(config_keys::kOtpAddress))),
          bytes_(bytes),
          begin_(config.Number(config_keys::kProgrammingAddress))
    {}

    uint32_t Begin() const { return begin_; }
    bool IsInFlash() const
    {
        return std::ranges::any_of(chips_,
                                   [&](Chip const& chip) { return chip.HasFlashAt(begin_); });
    }
    bool Holds(uint64_t address) const
    {
        return address >= begin_ && address - begin_ < static_cast<uint64_t>(bytes_.size());
    }
    // Nothing where no table can be: not a whole word, or not in the image.
    std::optional<VectorTable> TableAt(uint32_t address) const
    {
        if (!Holds(address) || !Holds(uint64_t{address} + 2 * kTableWord - 1)) {
            return std::nullopt;
        }
        auto const offset = static_cast<qsizetype>(address - begin_);
        return VectorTable{ReadLittleEndian<uint32_t>(bytes_, offset),
                           ReadLittleEndian<uint32_t>(bytes_, offset + kTableWord)};
    }
    // Whether the first word can be what it is in every image for such a chip.
    bool HasStack(VectorTable const& table) const
    {
        return table.stack_pointer % kTableWord == 0 &&
               std::ranges::any_of(chips_, [&](Chip const& chip) {
                   return chip.HasStackFrom(table.stack_pointer);
               });
    }
    // Why this is not a table, as the end of a sentence; an empty text if it is one.
    QString DescribeFault(VectorTable const& table) const
    {
        if (!HasStack(table)) {
            return u"the first word, %1, is not an initial stack pointer (a multiple of %2 in the "
                   "RAM of %3)"_s.arg(Hex(table.stack_pointer), QString::number(kTableWord),
                                      Name(chips_));
        }
        if (table.reset % 2 != kThumb) {
            return u"the second word, %1, is not the odd address of a reset handler"_s.arg(
                Hex(table.reset));
        }
        if (!Holds(table.reset - kThumb)) {
            return u"its reset handler at %1 is outside the image, which is written to %2"_s.arg(
                Hex(table.reset - kThumb), Hex(begin_));
        }
        return {};
    }

private:
    std::vector<Chip> chips_;
    QByteArray const& bytes_;
    uint32_t begin_;
};

bool IsFilledWith(QByteArray const& bytes, char value)
{
    return std::ranges::all_of(bytes, [=](char byte) { return byte == value; });
}

// The first exception or function call overwrites the marker, which the firmware then cannot find.
// A marker where the bootloader does not write it has been reported.
void CheckMarkerAgainstStack(Config const& config, VectorTable const& table, Findings& findings)
{
    auto const& key = config_keys::kBootModeAddress;
    auto const marker = config.Number(key);
    auto const top = table.stack_pointer;
    auto const chips = GetChipsByOtp(config.Number(config_keys::kOtpAddress));
    bool const is_writable =
        marker >= kRamStart + kBootloaderRamSize &&
        std::ranges::any_of(chips, [=](Chip const& chip) { return chip.HasRamAt(marker); });
    if (config.HoldsNumber(key) && is_writable && marker < top && top - marker <= kExceptionFrame) {
        constexpr uint32_t kStackAlignment = 8;
        bool const is_room_above = std::ranges::all_of(
            chips, [=](Chip const& chip) { return chip.HasRamAt(uint64_t{top} + kTableWord - 1); });
        auto const cure =
            is_room_above
                ? u"choose a word that the linker script keeps free, for example from %1 on"_s.arg(
                      Hex(top))
                : u"have the linker script begin the stack at %1 or lower, which keeps this word "
                  "free"_s.arg(Hex(marker / kStackAlignment * kStackAlignment));
        findings.Fail(
            config.PlaceOf(key),
            u"The marker at %1 is in the image's stack, which grows downwards from %2, so "
            "the firmware overwrites the marker before it reads it; %3."_s.arg(Hex(marker),
                                                                               Hex(top), cure));
    }
}

// The address that the unit is started at; nothing when it is not inside the image, which is
// reported elsewhere.
std::optional<uint32_t> GetStart(Config const& config, PlacedImage const& image)
{
    auto const& key = config_keys::kStartAddress;
    auto const start = config.Number(key);
    bool const is_used = config.HoldsNumber(key) && image.Holds(start) && start % kTableWord == 0;
    return is_used ? std::optional(start) : std::nullopt;
}

// The program replaces the last word over UART. False if that is in the table at `start`.
bool CheckTrailerAgainstTable(Config const& config, Place const& place, PlacedImage const& placed,
                              uint32_t start, Findings& findings)
{
    if (config.Type() != TargetUart || placed.Holds(uint64_t{start} + kSmallestTable)) {
        return true;
    }
    findings.Fail(place,
                  u"The program replaces the last four bytes of the image, and they are in the "
                  "vector table, which has at least %1 bytes from %2; is the image cut off?"_s
                      .arg(kSmallestTable)
                      .arg(Hex(start)));
    return false;
}

// `placed` is in flash. False if there is nothing like a table.
bool CheckTable(Config const& config, Place const& place, PlacedImage const& placed,
                Findings& findings)
{
    auto const start = GetStart(config, placed).value_or(placed.Begin());
    auto const table = placed.TableAt(start);
    if (table && placed.DescribeFault(*table).isEmpty()) {
        CheckMarkerAgainstStack(config, *table, findings);
        return CheckTrailerAgainstTable(config, place, placed, start, findings);
    }
    auto const first = placed.TableAt(placed.Begin());
    if (start != placed.Begin() && first && placed.DescribeFault(*first).isEmpty()) {
        findings.Fail(config.PlaceOf(config_keys::kStartAddress),
                      u"The unit is started at %1, but the image's vector table is at %2; write "
                      "%2."_s.arg(Hex(start), Hex(placed.Begin())));
        return true;
    }
    auto const fault =
        table ? placed.DescribeFault(*table) : u"there is no room for one in the image"_s;
    findings.Fail(place,
                  u"The image has no vector table at %1: %2. Use the raw image that is linked for "
                  "%3, made with 'objcopy -O binary FILE.elf FILE.bin', or correct %4."_s.arg(
                      Hex(start), fault, Hex(placed.Begin()),
                      QString(config_keys::kProgrammingAddress.name)));
    return table && placed.HasStack(*table);
}

}  // namespace

bool BeginsWithVectorTable(QByteArray const& head)
{
    if (head.size() < qsizetype{2 * kTableWord}) {
        return false;
    }
    VectorTable const table{ReadLittleEndian<uint32_t>(head, 0),
                            ReadLittleEndian<uint32_t>(head, kTableWord)};
    return table.stack_pointer % kTableWord == 0 && table.reset % 2 == kThumb &&
           std::ranges::any_of(GetChips(), [&](Chip const& chip) {
               return chip.HasStackFrom(table.stack_pointer) &&
                      chip.HasFlashAt(table.reset - kThumb);
           });
}

bool CheckBlank(Place const& place, QString const& what, QByteArray const& bytes,
                Findings& findings)
{
    for (char const value : {'\xFF', '\0'}) {
        if (IsFilledWith(bytes, value)) {
            findings.Fail(
                place, u"Every byte of %1 is 0x%2, so there is no firmware in it; build it again."_s
                           .arg(what)
                           .arg(static_cast<uint8_t>(value), 2, 16, QLatin1Char('0')));
            return true;
        }
    }
    return false;
}

bool CheckVectorTable(Config const& config, QByteArray const& image, Findings& findings)
{
    auto const place = config.PlaceOf(config_keys::kFirmwareFilename);
    if (CheckBlank(place, u"the image"_s, image, findings)) {
        return false;
    }
    PlacedImage const placed(config, image);
    return !placed.IsInFlash() || CheckTable(config, place, placed, findings);
}

}  // namespace bundle_check
