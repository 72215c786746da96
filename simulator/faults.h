// The one list of faults: for a scripted line, for a simulated unit and for a command line. A fault
// waits for its moment, strikes, and counts that it did.
//
// To add a fault, add an enumerator, a row of kFaults, the behaviour of the bootloader, and tests
// of the row.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ranges>
#include <span>
#include <string_view>
#include <vector>

namespace simulator {

// The event that a fault waits for. Each fault counts its moments from 1, from when it was added.
enum class FaultMoment {
    kCommand,       // any command or request that came complete and correct
    kWriteAddress,  // a Write Memory's address
    kWrite,         // a Write Memory that was asked for; a request with a chunk of an image; a DFU
                    // block that is about to be programmed
    kWriteData,     // a Write Memory's data, complete; a chunk of an image that can be stored
    kErase,         // the page list of an Erase or Extended Erase; a DFU erase, or an erase of
                    // MCUboot's slot, about to begin
    kAnswer,        // whatever the unit sends: an ACK, a NACK, a block of data, an SMP answer
    kCountedBlock,  // a block that begins with its own length (Get, Get ID; an SMP answer's body)
    kReadData,      // the data of a Read Memory
};

enum class FaultKind {
    kNackCommand,        // refuses a command
    kNackWriteCommand,   // refuses a Write Memory at its command
    kNackWriteAddress,   // ... at its address
    kNackWriteData,      // ... at its data; nothing is programmed
    kNackErase,          // refuses a page list; nothing is erased
    kDropAnswer,         // works, but does not send the answer
    kGarbageAnswer,      // first byte of the answer becomes `parameter`
    kCutAnswer,          // only the first `parameter` bytes of the answer are sent
    kExtraByte,          // one more byte, `parameter`, follows the answer
    kLateAnswer,         // the answer leaves `parameter` milliseconds late
    kWrongCount,         // the length that a counted block begins with becomes `parameter`
    kFlipReadData,       // first byte of the read data is XORed with `parameter`; 0: with 1
    kSilentAtCommand,    // hangs at a command: no answer, to nothing, until it is reset
    kSilentInWrite,      // hangs after `parameter` bytes of a write's data; 0: at its command. In
                         // front of a chunk of an image or a DFU block, whatever the parameter:
                         // nothing is stored
    kVanishInWrite,      // the same, and leaves its host
    kForeignLineBefore,  // a line of text that is not an answer comes first
    kForeignLineAfter,   // ... or follows
    kWrongCheckValue,    // check value of an SMP answer is XORed with `parameter`; 0: with 1
    kErrorCode,          // answers a request with error code `parameter` and does nothing else
    kErrorInUpload,      // the same for a chunk of an image
    kAskForOffset,   // stores nothing of a chunk and goes on at offset `parameter` (signed 32 bits)
    kKeepOffset,     // stores nothing of a chunk and asks for the same one again
    kOmitOffset,     // stores a chunk, but does not answer with the next offset
    kVanishInErase,  // leaves its host instead of erasing a page
    kSlowErase,      // is busy erasing for `parameter` milliseconds more; over DFU it reports that
    kErrorInErase,   // ends an erase with DFU status `parameter`; nothing is erased
    kErrorInWrite,   // ends a write with DFU status `parameter`; nothing is programmed
    kStuckInWrite,   // reports for ever that it is still programming
};

// The bootloaders that can show a fault, as bits.
inline constexpr unsigned kOnStm32 = 1;
inline constexpr unsigned kOnMcuboot = 2;
inline constexpr unsigned kOnDfu = 4;
inline constexpr unsigned kOnSerial = kOnStm32 | kOnMcuboot;
inline constexpr unsigned kOnAll = kOnSerial | kOnDfu;

struct FaultRow {
    FaultKind kind;
    std::string_view name;  // on a command line and in a test's name
    FaultMoment moment;
    unsigned bootloaders;
};

// Every fault, in the order of the enumeration. Names, moments and the lists below come from here.
constexpr auto MakeFaults()
{
    using enum FaultKind;
    using enum FaultMoment;
    return std::array{
        FaultRow{kNackCommand, "nack-command", kCommand, kOnStm32},
        FaultRow{kNackWriteCommand, "nack-write-command", kWrite, kOnStm32},
        FaultRow{kNackWriteAddress, "nack-write-address", kWriteAddress, kOnStm32},
        FaultRow{kNackWriteData, "nack-write-data", kWriteData, kOnStm32},
        FaultRow{kNackErase, "nack-erase", kErase, kOnStm32},
        FaultRow{kDropAnswer, "drop-answer", kAnswer, kOnSerial},
        FaultRow{kGarbageAnswer, "garbage-answer", kAnswer, kOnSerial},
        FaultRow{kCutAnswer, "cut-answer", kAnswer, kOnSerial},
        FaultRow{kExtraByte, "extra-byte", kAnswer, kOnSerial},
        FaultRow{kLateAnswer, "late-answer", kAnswer, kOnSerial},
        FaultRow{kWrongCount, "wrong-count", kCountedBlock, kOnSerial},
        FaultRow{kFlipReadData, "flip-read-data", kReadData, kOnStm32},
        FaultRow{kSilentAtCommand, "silent-at-command", kCommand, kOnAll},
        FaultRow{kSilentInWrite, "silent-in-write", kWrite, kOnAll},
        FaultRow{kVanishInWrite, "vanish-in-write", kWrite, kOnAll},
        FaultRow{kForeignLineBefore, "foreign-line-before", kAnswer, kOnMcuboot},
        FaultRow{kForeignLineAfter, "foreign-line-after", kAnswer, kOnMcuboot},
        FaultRow{kWrongCheckValue, "wrong-check-value", kCountedBlock, kOnMcuboot},
        FaultRow{kErrorCode, "error-code", kCommand, kOnMcuboot},
        FaultRow{kErrorInUpload, "error-in-upload", kWrite, kOnMcuboot},
        FaultRow{kAskForOffset, "ask-for-offset", kWrite, kOnMcuboot},
        FaultRow{kKeepOffset, "keep-offset", kWrite, kOnMcuboot},
        FaultRow{kOmitOffset, "omit-offset", kWriteData, kOnMcuboot},
        FaultRow{kVanishInErase, "vanish-in-erase", kErase, kOnDfu},
        FaultRow{kSlowErase, "slow-erase", kErase, kOnMcuboot | kOnDfu},
        FaultRow{kErrorInErase, "error-in-erase", kErase, kOnDfu},
        FaultRow{kErrorInWrite, "error-in-write", kWrite, kOnDfu},
        FaultRow{kStuckInWrite, "stuck-in-write", kWrite, kOnDfu},
    };
}
inline constexpr auto kFaults = MakeFaults();

// The faults that one bootloader can show.
template <unsigned bootloader>
constexpr auto ListFaults()
{
    constexpr auto is_shown = [](FaultRow const& row) {
        return (row.bootloaders & bootloader) != 0;
    };
    std::array<FaultKind, std::ranges::count_if(kFaults, is_shown)> kinds{};
    std::ranges::transform(kFaults | std::views::filter(is_shown), kinds.begin(), &FaultRow::kind);
    return kinds;
}
inline constexpr auto kStm32FaultKinds = ListFaults<kOnStm32>();
inline constexpr auto kMcubootFaultKinds = ListFaults<kOnMcuboot>();
inline constexpr auto kDfuFaultKinds = ListFaults<kOnDfu>();

// Strikes at occurrences `at` ... `at` + `count` - 1 of its kind's moment.
struct Fault {
    FaultKind kind;
    unsigned at = 1;         // from 1
    unsigned count = 1;      // 0 never strikes
    uint32_t parameter = 0;  // see FaultKind; taken modulo the size of what it becomes
};

FaultMoment GetMoment(FaultKind kind);

// The name of `kind` on a command line, such as "nack-write-data".
std::string_view GetName(FaultKind kind);
std::optional<FaultKind> FindFaultKind(std::string_view name);

// The faults set for one unit. Not thread-safe.
class FaultList {
public:
    // `kinds`: the faults that the unit can show; they must outlive the list.
    explicit FaultList(std::span<FaultKind const> kinds) : kinds_(kinds) {}

    // Throws std::invalid_argument for a kind that the unit cannot show.
    void Add(Fault const& fault);
    void Clear();

    // Counts one occurrence of `moment` and returns the faults that strike there, in the order in
    // which they were added.
    std::vector<Fault> Strike(FaultMoment moment);

    // How often any fault has struck since the list was last cleared.
    unsigned Strikes() const { return strikes_; }

private:
    struct Armed {
        Fault fault;
        unsigned seen = 0;
    };
    std::span<FaultKind const> kinds_;
    std::vector<Armed> armed_;
    unsigned strikes_ = 0;
};

}  // namespace simulator
