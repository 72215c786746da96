// What every simulated bootloader on a microcontroller has, whatever its protocol and whatever
// carries it: memory, faults, a journal, and the ways to fall silent. How bytes come and go is up
// to serial_bootloader.h and dfuse_bootloader.h.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "simulator/chips/chip_memory.h"
#include "simulator/chips/chips.h"
#include "simulator/faults.h"
#include "simulator/journal.h"
#include "simulator/unit_status.h"

namespace simulator {

// Not thread-safe.
class ChipBootloader {
public:
    virtual ~ChipBootloader() = default;

    // Power-on or the reset pin: the bootloader starts anew; what it has stored stays.
    virtual void Reset();

    // True once the unit has left its host, because of a fault or of its own accord. The owner
    // takes it away there; Reset() ends it.
    bool HasLeft() const { return has_left_; }

    // While silent it takes no notice of what it receives. A reset does not end this.
    void SetSilent(bool silent) { silent_ = silent; }

    // Everything but what only the port knows.
    virtual UnitStatus Status() const = 0;

    ChipMemory const& Memory() const { return memory_; }
    ChipMemory& Memory() { return memory_; }
    FaultList const& Faults() const { return faults_; }
    FaultList& Faults() { return faults_; }
    Journal const& GetJournal() const { return journal_; }
    Journal& GetJournal() { return journal_; }

protected:
    // `fault_kinds`: those that the bootloader can show; they must outlive it.
    explicit ChipBootloader(std::span<FaultKind const> fault_kinds) : faults_(fault_kinds) {}

    // Flash and OTP area, erased but for `otp` at the start of the latter, and RAM.
    void AddMemoryOf(Chip const& chip, std::span<std::byte const> otp);

    // True while what it receives is lost on it.
    bool HearsNothing() const { return silent_ || hung_; }
    bool IsHung() const { return hung_; }

    // Enters the command in progress, `entry_`, into the journal.
    void Finish(Outcome outcome, std::string reason = {});

    // Falls silent until the reset because of a fault of that kind; one that says so takes the unit
    // from its host.
    void Hang(FaultKind kind);

    void Leave() { has_left_ = true; }

    JournalEntry entry_;

private:
    ChipMemory memory_;
    FaultList faults_;
    Journal journal_;
    bool silent_ = false;
    bool hung_ = false;
    bool has_left_ = false;
};

}  // namespace simulator
