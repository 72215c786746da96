// The parts that all simulated bootloaders share, whatever their protocol: memory, faults, journal
// and the ways to fall silent. Two classes derive from it and add how bytes come and go; they are
// in serial_bootloader.h and dfuse_bootloader.h.
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

    // Power-on or the reset pin: the bootloader starts again; memory stays as it is.
    virtual void Reset();

    // True once the unit has left its host, because of a fault or as its protocol requires. The
    // owner then takes its port away. False again after Reset().
    bool HasLeft() const { return has_left_; }

    // The unit is on a host again. One that has its own power supply is as it was before.
    void ComeBack() { has_left_ = false; }

    // While silent the unit ignores what it receives. A reset does not end this.
    void SetSilent(bool silent) { silent_ = silent; }

    // All members except those that only the connection knows.
    virtual UnitStatus Status() const = 0;

    ChipMemory const& Memory() const { return memory_; }
    ChipMemory& Memory() { return memory_; }
    FaultList const& Faults() const { return faults_; }
    FaultList& Faults() { return faults_; }
    Journal const& GetJournal() const { return journal_; }
    Journal& GetJournal() { return journal_; }

protected:
    // `fault_kinds`: the faults that the bootloader can show; they must outlive it.
    explicit ChipBootloader(std::span<FaultKind const> fault_kinds) : faults_(fault_kinds) {}

    // Adds flash, OTP area and RAM. Flash and OTP area are erased, except that `otp` is at the
    // start of the OTP area.
    void AddMemoryOf(Chip const& chip, std::span<std::byte const> otp);

    // The next three are for a system bootloader, after AddMemoryOf().

    // Whether the client may use the memory at `address`: it exists, and is not the bootloader's.
    bool IsOpen(uint32_t address) const;

    // Whether a write of `size` bytes to `address` is refused because it is not made of whole
    // programming units.
    bool RefusesUnits(uint32_t address, size_t size) const;

    // Stores what the memory takes of a write. Returns why the rest is lost, for the journal; empty
    // when everything is stored. Throws std::out_of_range.
    std::string StoreWrite(uint32_t address, std::span<std::byte const> data);

    // True while the unit ignores what it receives.
    bool HearsNothing() const { return silent_ || hung_; }
    bool IsHung() const { return hung_; }

    // Enters the command in progress, `entry_`, into the journal.
    void Finish(Outcome outcome, std::string reason = {});

    // Falls silent until the reset because of a fault of that kind. A fault that makes the unit
    // vanish also takes it from its host.
    void Hang(FaultKind kind);

    // Falls silent until the reset, with this reason in the journal.
    void Hang(std::string reason);

    void Leave() { has_left_ = true; }

    JournalEntry entry_;

private:
    Chip chip_{};
    ChipMemory memory_;
    FaultList faults_;
    Journal journal_;
    bool silent_ = false;
    bool hung_ = false;
    bool has_left_ = false;
};

}  // namespace simulator
