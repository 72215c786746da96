// A unit in MCUboot's serial recovery mode, with the vendor's own OTP command in addition: answers
// requests and stores the image. No port, no thread, no clock, and no code of the updater.
//
// A line that is not a good request gets no answer; the journal says why. The unit reads its line
// only between two requests: what comes while it erases or programs is lost.
#pragma once

#include <QByteArray>
#include <QCborMap>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "simulator/bootloaders/cbor_map.h"
#include "simulator/bootloaders/serial_bootloader.h"
#include "simulator/bootloaders/smp_line.h"
#include "simulator/chips/chips.h"

namespace simulator {

// OTP keys of the vendor's units.
inline constexpr uint32_t kModelIdKey = 0x01234711;
inline constexpr uint32_t kSerialNumberKey = 0x3CA6A4AF;

// Error codes ("rc").
inline constexpr uint32_t kRcInvalidValue = 3;
inline constexpr uint32_t kRcNotFound = 5;
inline constexpr uint32_t kRcNotSupported = 8;

struct McubootRecoveryOptions {
    Chip chip = kChips.front();                      // the image's slot is all of its flash
    std::map<uint32_t, std::vector<std::byte>> otp;  // values by their keys
    size_t line_buffer = 2048;                       // longest line it takes, newline included
    size_t answer_line = 0;  // characters of base64 in a line of an answer; 0: all in one line
    bool definite_maps = false;
    ChipTimes times;
    // What it prints on the line beside its answers.
    bool talks = false;      // a banner after each reset; the application's console once that runs
    bool log_lines = false;  // a line of its log at each request, before it works on it
    // How long it pauses between two lines: after the log's, and between those of an answer.
    std::chrono::microseconds line_pause{0};
};

// How the unit talks when nobody has asked: this many lines, with a pause before each.
inline constexpr int kTalkLines = 20;
inline constexpr std::chrono::milliseconds kTalkPause{100};

// Not thread-safe.
class McubootRecovery final : public SerialBootloader {
public:
    explicit McubootRecovery(McubootRecoveryOptions options);

    void Reset() override;
    UnitStatus Status() const override;

private:
    using Entries = std::vector<CborEntry>;

    // An image being received, once it has begun.
    struct Upload {
        bool begun = false;
        uint32_t size = 0;
        uint32_t next_offset = 0;
    };

    // The contents of a request to store a chunk.
    struct Chunk {
        QByteArray data;
        uint64_t offset = 0;
        std::optional<uint64_t> image_size;  // with the first chunk only
    };

    void Take(std::byte byte) override;
    void HandleLine(QByteArray const& line);
    void Handle(SmpMessage const& request);
    bool CommandFaultStrikes(SmpMessage const& request);
    void Dispatch(SmpMessage const& request, Entries const& entries);

    void AnswerImageState(SmpMessage const& request);
    void AnswerOtp(SmpMessage const& request, Entries const& entries);
    void EraseSlot(SmpMessage const& request);
    void RestartUnit(SmpMessage const& request);
    void TakeChunk(SmpMessage const& request, Entries const& entries);
    bool UploadFaultStrikes(SmpMessage const& request);
    bool IsStorable(Chunk const& chunk) const;
    std::chrono::microseconds Store(Chunk const& chunk);
    std::chrono::microseconds StartUpload(uint32_t size);
    std::chrono::microseconds GetDelayOfErase();
    void Talk(std::string_view first_line);

    void Refuse(SmpMessage const& request, uint32_t error_code);
    void Complete(SmpMessage const& request, QCborMap const& answer,
                  std::chrono::microseconds busy = {});
    void SendAnswer(SmpMessage const& request, QCborMap const& answer,
                    std::chrono::microseconds busy = {});

    McubootRecoveryOptions options_;
    UnitState state_ = UnitState::kWaitingForSync;
    QByteArray line_;  // so far; what is beyond the line buffer is lost
    Upload upload_;
    unsigned connects_ = 0;
    unsigned erased_pages_ = 0;
    unsigned writes_ = 0;
};

}  // namespace simulator
