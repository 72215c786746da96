// What every simulated loader on a microcontroller has, whatever its protocol: memory, faults, a
// journal, and the ways to fall silent.
#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "simulator/chip_memory.h"
#include "simulator/faults.h"
#include "simulator/journal.h"
#include "simulator/unit_protocol.h"
#include "simulator/unit_status.h"

namespace simulator {

// Not thread-safe.
class ChipLoader : public IUnitProtocol {
public:
    std::vector<Answer> Receive(std::span<const std::byte> bytes) final;
    void Reset() override;
    bool Vanished() const final { return vanished_; }

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
    // `fault_kinds`: those that the loader can show; they must outlive it.
    explicit ChipLoader(std::span<const FaultKind> fault_kinds) : faults_(fault_kinds) {}

    // The next byte, unless the unit hears nothing.
    virtual void Take(std::byte byte) = 0;

    bool IsHung() const { return hung_; }

    // Enters the command in progress, `entry_`, into the journal.
    void Finish(Outcome outcome, std::string reason = {});

    // Falls silent until the reset because of a fault of that kind; one that says so leaves its
    // line.
    void Hang(FaultKind kind);

    // Sends, unless a fault has it otherwise.
    void Send(std::vector<std::byte> bytes, std::chrono::microseconds busy = {});

    JournalEntry entry_;

private:
    ChipMemory memory_;
    FaultList faults_;
    Journal journal_;
    bool silent_ = false;
    bool hung_ = false;
    bool vanished_ = false;
    std::vector<Answer> answers_;  // to the piece being received
    size_t consumed_ = 0;          // bytes of that piece
};

}  // namespace simulator
