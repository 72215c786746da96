// The system bootloader of an STM32 on its USB port: the state machine of USB DFU 1.1 with ST's own
// commands (DfuSe; application note AN3156). Control requests in, bytes or a stall out: no port, no
// thread, no clock.
//
// By the protocol, the client asks for the status until the unit is done. As on a real unit, an
// operation begins with the first status request after its download.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "simulator/bootloaders/chip_bootloader.h"
#include "simulator/chips/chips.h"

namespace simulator {

// Class-specific requests (DFU 1.1, table 3.2).
enum class DfuRequest : uint8_t {
    kDetach = 0,
    kDownload = 1,
    kUpload = 2,
    kGetStatus = 3,
    kClearStatus = 4,
    kGetState = 5,
    kAbort = 6,
};

// bState (DFU 1.1, table 6.1.2): those of a unit that is in its bootloader.
enum class DfuState : uint8_t {
    kIdle = 2,
    kDownloadSync = 3,
    kDownloadBusy = 4,
    kDownloadIdle = 5,
    kManifestSync = 6,
    kManifest = 7,
    kUploadIdle = 9,
    kError = 10,
};

// bStatus (DFU 1.1, table 6.1.2): those that the bootloader sets by itself. A fault may set any
// other value.
enum class DfuStatus : uint8_t {
    kOk = 0x00,
    kTarget = 0x01,  // ST: an address where the operation is not possible
    kWrite = 0x03,
    kVendor = 0x0B,  // ST: a command that the unit refuses
    kStalledPacket = 0x0F,
};

// The most bytes in one download or upload; also in the bootloader's descriptor.
inline constexpr size_t kDfuTransferSize = 2048;

// A class-specific control request to the DFU interface. `data` is empty for requests that ask for
// bytes; `length` is then how many.
struct DfuControl {
    DfuRequest request;
    uint16_t value = 0;
    uint16_t length = 0;
    std::span<std::byte const> data{};
};

struct DfuAnswer {
    enum class Kind { kDone, kStall, kNone };  // kNone: the unit hangs, the request stays open
    Kind kind = Kind::kDone;
    std::vector<std::byte> data{};

    bool operator==(DfuAnswer const&) const = default;
};

struct DfuseBootloaderOptions {
    Chip chip = kChips.front();
    // Loaded at the start of the chip's OTP area; the rest of the area is 0xFF.
    std::vector<std::byte> otp;
    ChipTimes times;
};

// Not thread-safe.
class DfuseBootloader final : public ChipBootloader {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    explicit DfuseBootloader(DfuseBootloaderOptions options);

    void Reset() override;
    UnitStatus Status() const override;

    // A client claims the interface.
    void Claim();

    DfuAnswer Handle(DfuControl const& control, TimePoint now);

private:
    enum class Operation { kSetAddress, kErasePage, kEraseAll, kWrite };

    // The operation of a download; it begins with the next status request.
    struct Pending {
        Operation operation = Operation::kSetAddress;
        uint32_t address = 0;
        std::vector<std::byte> data{};
    };

    DfuAnswer Download(DfuControl const& control);
    DfuAnswer TakeCommand(std::span<std::byte const> bytes);
    DfuAnswer TakeBlock(unsigned number, std::span<std::byte const> bytes);
    DfuAnswer Expect(Pending pending);
    DfuAnswer StartLeaving();
    DfuAnswer Upload(DfuControl const& control);
    DfuAnswer GetStatus(TimePoint now);
    DfuAnswer ClearStatus();
    DfuAnswer Abort();
    DfuAnswer Stall(DfuStatus status, std::string reason);
    bool CommandFaultStrikes();

    void Begin(TimePoint now);
    std::chrono::microseconds Erase();
    std::chrono::microseconds Write();
    void SetAddress();
    bool OperationFaultStrikes(FaultMoment moment, std::chrono::microseconds& busy);
    void Fail(uint8_t status, std::string reason);
    std::vector<std::byte> MakeStatus(uint32_t poll_timeout_ms) const;
    uint32_t BlockAddress(unsigned number) const;

    DfuseBootloaderOptions options_;
    DfuState state_ = DfuState::kIdle;
    uint8_t status_ = 0;
    uint32_t address_pointer_ = kFlashStart;
    Pending pending_;
    TimePoint busy_until_;
    uint8_t result_ = 0;  // status that the operation in progress will end with
    bool stuck_ = false;

    bool claimed_ = false;
    bool running_ = false;
    unsigned connects_ = 0;
    unsigned erased_pages_ = 0;
    unsigned writes_ = 0;
};

}  // namespace simulator
