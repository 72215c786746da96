// A unit that answers as a recorded one did: compares what it receives with what the recorded unit
// received, and sends what that one sent. At the first difference it enters packet, byte, expected
// and received into the journal and falls silent. No port, no clock, and no knowledge of files.
//
// What differs only in time is no difference:
// - A client that begins again, because it has polled once more or has given up waiting, sends the
//   first recorded request again. Where a request may begin, that restarts the recording.
// - A client of MCUboot numbers its requests through all sessions, so a request's sequence number
//   depends on how often it has polled before. The number, and the check value with it, are not
//   compared. The answers keep the recorded numbers, which clients do not look at.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/bootloaders/serial_bootloader.h"

namespace simulator {

// Bytes that passed in one direction.
struct ReplayedPacket {
    size_t number = 0;  // in the record, from 1, as other tools count
    bool from_unit = false;
    std::chrono::nanoseconds time{0};  // since any moment; never goes back
    std::vector<std::byte> bytes;      // not empty
};

struct ReplayedUnitOptions {
    // In their order. What the unit sent before the first request is left out: nobody knows when
    // the port was opened, and clients discard it.
    std::vector<ReplayedPacket> packets;
    bool has_smp_lines = false;  // requests are lines of MCUboot's; else any bytes
    unsigned speed = 1;          // delays are divided by it; 0: there are none
};

// Has no memory and shows no faults. Its journal has "request" for each request that was as
// recorded, "begin-again" when the client started over, "complete" when all was received, and
// "difference".
class ReplayedUnit final : public SerialBootloader {
public:
    // Throws std::invalid_argument when no whole request was sent to the unit.
    explicit ReplayedUnit(ReplayedUnitOptions options);

    void Reset() override;
    UnitStatus Status() const override;

private:
    // Bytes that the unit sent, and how long after the ones before them.
    struct RecordedAnswer {
        std::vector<std::byte> bytes;
        std::chrono::microseconds delay;
    };

    // What was sent to the unit between two of its answers, or one line of it.
    struct RecordedRequest {
        std::vector<std::byte> bytes;
        std::vector<size_t> numbers;  // of the packet that each byte was in
        std::vector<RecordedAnswer> answers;
    };

    void Take(std::byte byte) override;
    void AddToRequests(ReplayedPacket const& packet);
    void TakeByte();
    void TakeLine();
    void BeginAgain();
    void FinishRequest();
    void ReportDifference();
    std::string DescribeDifferentByte() const;
    std::string DescribeDifferentLine() const;

    bool const has_smp_lines_;
    unsigned const speed_;
    std::vector<RecordedRequest> requests_;
    size_t next_ = 0;                  // index of the request that is expected
    std::vector<std::byte> received_;  // of it so far
    unsigned begins_ = 0;
};

}  // namespace simulator
