// The one list of faults that a simulated unit can show, for in-process tests, for the program and
// for tests that walk through every kind at every step. A fault waits for its moment, strikes, and
// can be asked whether it did.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace simulator {

// What a fault waits for. Each has a count of its own, which begins at 1 with the first occurrence
// after the fault was added.
enum class FaultMoment {
    kCommand,       // any command whose code and complement were right
    kWriteAddress,  // a Write Memory's address
    kWrite,         // a Write Memory that was asked for
    kWriteData,     // a Write Memory's data, complete
    kErase,         // the page list of an Erase or Extended Erase
    kAnswer,        // anything that the unit sends: an ACK, a NACK, a block of data
    kCountedBlock,  // a block that begins with its own length (Get, Get ID)
    kReadData,      // the data of a Read Memory
};

enum class FaultKind {
    kNackCommand,       // refuses a command
    kNackWriteCommand,  // refuses a Write Memory at its command
    kNackWriteAddress,  // ... at its address
    kNackWriteData,     // ... at its data; nothing is programmed
    kNackErase,         // refuses a page list; nothing is erased
    kDropAnswer,        // works, but does not send the answer
    kGarbageAnswer,     // first byte of the answer becomes `parameter`
    kCutAnswer,         // only the first `parameter` bytes of the answer are sent
    kExtraByte,         // one more byte, `parameter`, follows the answer
    kLateAnswer,        // the answer leaves `parameter` milliseconds late
    kWrongCount,        // the length byte of a counted block becomes `parameter`
    kFlipReadData,      // first byte of the read data is XORed with `parameter`
    kSilentAtCommand,   // hangs at a command: no answer, to nothing, until it is reset
    kSilentInWrite,     // hangs after `parameter` bytes of a write's data; 0: at its command
    kVanishInWrite,  // leaves its line after `parameter` bytes of a write's data; 0: at its command
};

inline constexpr std::array kAllFaultKinds{
    FaultKind::kNackCommand,     FaultKind::kNackWriteCommand, FaultKind::kNackWriteAddress,
    FaultKind::kNackWriteData,   FaultKind::kNackErase,        FaultKind::kDropAnswer,
    FaultKind::kGarbageAnswer,   FaultKind::kCutAnswer,        FaultKind::kExtraByte,
    FaultKind::kLateAnswer,      FaultKind::kWrongCount,       FaultKind::kFlipReadData,
    FaultKind::kSilentAtCommand, FaultKind::kSilentInWrite,    FaultKind::kVanishInWrite,
};

// Strikes at occurrences `at` ... `at` + `count` - 1 of its kind's moment.
struct Fault {
    FaultKind kind;
    unsigned at = 1;         // from 1
    unsigned count = 1;      // 0 never strikes
    uint32_t parameter = 0;  // see FaultKind; a byte value is taken modulo 256
};

FaultMoment GetMoment(FaultKind kind);

// The name of `kind` on a command line, such as "nack-write-data".
std::string_view GetName(FaultKind kind);
std::optional<FaultKind> FindFaultKind(std::string_view name);

// The faults set for one unit. Not thread-safe.
class FaultList {
public:
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
    std::vector<Armed> armed_;
    unsigned strikes_ = 0;
};

}  // namespace simulator
