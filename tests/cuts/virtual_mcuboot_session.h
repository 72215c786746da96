// A whole MCUboot session in virtual time: the conversation updates a simulated unit over a wire
// with faults, and then a second time, after a reset, over one without. Judges how both ended.
#pragma once

#include <QByteArray>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "mcuboot/exchange.h"
#include "simulator/bootloaders/mcuboot_recovery.h"
#include "tests/cuts/random_faults.h"
#include "tests/cuts/session_end.h"
#include "tests/cuts/virtual_wire.h"

namespace cuts {

struct McubootSetup {
    std::string name;
    simulator::McubootRecoveryOptions unit;
};

// Every chip, and every option of the bootloader.
std::vector<McubootSetup> ListMcubootSetups();

// Runs sessions with one simulated unit, each from the same beginning.
class McubootBench {
public:
    explicit McubootBench(McubootSetup setup);

    std::string const& Name() const { return setup_.name; }

    // Of a session without faults, by direction.
    std::array<size_t, 2> CountBytes() const { return sound_.bytes; }

    // Exactly one fault. Nothing may go undetected.
    SessionVerdict RunWithOne(WireFault const& fault);

    // Any faults. Only what holds whatever the line does is a problem.
    SessionVerdict RunWithMany(SessionFaults const& faults);

private:
    // The requests of a session, in their order: the image's state, the model, a chunk each, the
    // restart.
    static constexpr size_t kFirstChunk = 2;
    static constexpr size_t kChunks = 4;
    static constexpr size_t kRestart = kFirstChunk + kChunks;

    struct Attempt {
        // The request that failed and its outcome; kSuccess after the restart request.
        size_t last_request = 0;
        mcuboot::Outcome outcome = mcuboot::Outcome::kSuccess;
        bool is_verified = false;
        bool is_updated = false;
        bool is_running = false;
        Time time{0};
        std::array<size_t, 2> bytes{};
        std::vector<std::array<size_t, 2>> requests;  // where each began
        QByteArray received;
        uint64_t trace_hash = 0;
        std::vector<std::byte> flash;
    };

    void Restore();
    void ResetUnit();
    Attempt Try(mcuboot::Exchange& exchange, SessionFaults const& faults);
    static void Converse(mcuboot::Exchange& exchange, Attempt& attempt, QByteArray const& image);
    SessionVerdict Judge(Attempt const& attempt, mcuboot::Exchange& exchange);
    SessionEnd Classify(Attempt const& attempt) const;
    std::vector<std::byte> FlashAfter(size_t requests) const;
    // The request that a byte belongs to, itself or its answer.
    size_t FindRequest(WireFault const& fault) const;
    bool IsInBanner(WireFault const& fault) const;
    static Time GetLimit(size_t request);  // for its answer
    mcuboot::Outcome PredictCut(size_t position, size_t request) const;

    // Why a damaged byte did not make the session fail; empty when there is no good reason.
    std::string ExplainOne(WireFault const& fault) const;

    // Each returns what is wrong, and nothing when all is right.
    std::string CheckSecondAttempt(mcuboot::Exchange& exchange, size_t requests);
    std::string CheckPrediction(Attempt const& attempt, WireFault const& fault) const;
    std::string CheckFails(Attempt const& attempt, size_t request, mcuboot::Outcome outcome,
                           size_t effects) const;

    McubootSetup setup_;
    simulator::McubootRecovery unit_;
    QByteArray image_;
    std::vector<std::byte> flash_before_;
    std::vector<std::byte> new_flash_;
    Attempt sound_;  // without faults
    // What is wrong with a second attempt. It depends on the flash that it finds and on the number
    // of its first request alone, so each is run once.
    std::map<std::pair<std::vector<std::byte>, size_t>, std::string> second_attempts_;
};

}  // namespace cuts
