#include "simulator/bootloaders/dfuse_bootloader.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <utility>

namespace simulator {
namespace {

// The first byte of a download to block 0 (AN3156, "DFU download commands").
constexpr std::byte kSetAddressCommand{0x21};
constexpr std::byte kEraseCommand{0x41};
constexpr std::byte kReadUnprotectCommand{0x92};

// An upload of block 0 returns this list of commands.
constexpr std::array kCommandList{std::byte{0x00}, kSetAddressCommand, kEraseCommand,
                                  kReadUnprotectCommand};

constexpr size_t kAddressSize = 4;
constexpr unsigned kFirstDataBlock = 2;

// The status has 24 bits for a time in milliseconds.
constexpr uint32_t kLongestPollTimeout = 0xFFFFFF;
// The time that a stuck unit asks its client to wait, over and over.
constexpr uint32_t kStuckPollTimeout = 100;

uint32_t ReadAddress(std::span<std::byte const> little_endian)
{
    uint32_t address = 0;
    for (size_t i = 0; i < kAddressSize; ++i) {
        address |= std::to_integer<uint32_t>(little_endian[i]) << (8 * i);
    }
    return address;
}

uint32_t ToPollTimeout(DfuseBootloader::TimePoint::duration time)
{
    auto const milliseconds = std::chrono::ceil<std::chrono::milliseconds>(time).count();
    return static_cast<uint32_t>(std::clamp<int64_t>(milliseconds, 0, kLongestPollTimeout));
}

DfuAnswer Done(std::vector<std::byte> data = {})
{
    return {DfuAnswer::Kind::kDone, std::move(data)};
}

DfuAnswer NoAnswer()
{
    return {DfuAnswer::Kind::kNone};
}

}  // namespace

DfuseBootloader::DfuseBootloader(DfuseBootloaderOptions options)
    : ChipBootloader(kDfuFaultKinds), options_(std::move(options))
{
    AddMemoryOf(options_.chip, options_.otp);
}

void DfuseBootloader::Reset()
{
    state_ = DfuState::kIdle;
    status_ = 0;
    address_pointer_ = kFlashStart;
    stuck_ = false;
    claimed_ = false;
    running_ = false;
    ChipBootloader::Reset();
}

UnitStatus DfuseBootloader::Status() const
{
    return {
        .state = running_   ? UnitState::kRunning
                 : claimed_ ? UnitState::kSynchronised
                            : UnitState::kWaitingForSync,
        .jump_address = running_ ? std::optional(address_pointer_) : std::nullopt,
        .connects = connects_,
        .erased_pages = erased_pages_,
        .writes = writes_,
        .programmed_over_unerased = Memory().ProgrammedOverUnerased(),
        .fault_strikes = Faults().Strikes(),
    };
}

void DfuseBootloader::Claim()
{
    claimed_ = true;
    ++connects_;
}

DfuAnswer DfuseBootloader::Handle(DfuControl const& control, TimePoint now)
{
    if (HearsNothing() || running_) {
        return NoAnswer();
    }
    switch (control.request) {
        case DfuRequest::kDownload:
            return Download(control);
        case DfuRequest::kUpload:
            return Upload(control);
        case DfuRequest::kGetStatus:
            return GetStatus(now);
        case DfuRequest::kClearStatus:
            return ClearStatus();
        case DfuRequest::kGetState:
            return Done({static_cast<std::byte>(state_)});
        case DfuRequest::kAbort:
            return Abort();
        case DfuRequest::kDetach:
            break;
    }
    entry_ = {.command = "request"};
    return Stall(DfuStatus::kStalledPacket, "unknown");
}

DfuAnswer DfuseBootloader::Download(DfuControl const& control)
{
    entry_ = {.command = "download"};
    if (state_ != DfuState::kIdle && state_ != DfuState::kDownloadIdle) {
        return Stall(DfuStatus::kStalledPacket, "state");
    }
    if (control.data.size() > kDfuTransferSize) {
        return Stall(DfuStatus::kStalledPacket, "size");
    }
    if (CommandFaultStrikes()) {
        return NoAnswer();
    }
    if (control.data.empty()) {
        return StartLeaving();
    }
    return control.value == 0 ? TakeCommand(control.data) : TakeBlock(control.value, control.data);
}

DfuAnswer DfuseBootloader::TakeCommand(std::span<std::byte const> bytes)
{
    bool const has_address = bytes.size() == 1 + kAddressSize;
    auto const address = has_address ? ReadAddress(bytes.subspan(1)) : 0;
    if (bytes.front() == kSetAddressCommand && has_address) {
        return Expect({Operation::kSetAddress, address});
    }
    if (bytes.front() == kEraseCommand && has_address) {
        return Expect({Operation::kErasePage, address});
    }
    if (bytes.front() == kEraseCommand && bytes.size() == 1) {
        return Expect({Operation::kEraseAll});
    }
    if (bytes.front() == kReadUnprotectCommand && bytes.size() == 1) {
        entry_.command = "read-unprotect";
        return Stall(DfuStatus::kVendor, "refused");
    }
    return Stall(DfuStatus::kStalledPacket, "unknown");
}

DfuAnswer DfuseBootloader::TakeBlock(unsigned number, std::span<std::byte const> bytes)
{
    if (number < kFirstDataBlock) {
        return Stall(DfuStatus::kStalledPacket, "block");
    }
    return Expect({Operation::kWrite, BlockAddress(number), {bytes.begin(), bytes.end()}});
}

DfuAnswer DfuseBootloader::Expect(Pending pending)
{
    pending_ = std::move(pending);
    state_ = DfuState::kDownloadSync;
    return Done();
}

DfuAnswer DfuseBootloader::StartLeaving()
{
    entry_ = {.command = "leave", .address = address_pointer_};
    Finish(Outcome::kAck);
    state_ = DfuState::kManifestSync;
    return Done();
}

DfuAnswer DfuseBootloader::Upload(DfuControl const& control)
{
    entry_ = {.command = "upload"};
    if (state_ != DfuState::kIdle && state_ != DfuState::kUploadIdle) {
        return Stall(DfuStatus::kStalledPacket, "state");
    }
    bool const is_list = control.value == 0;
    if (control.length > kDfuTransferSize || (!is_list && control.value < kFirstDataBlock)) {
        return Stall(DfuStatus::kStalledPacket, is_list ? "size" : "block");
    }
    if (CommandFaultStrikes()) {
        return NoAnswer();
    }
    std::vector<std::byte> data{kCommandList.begin(), kCommandList.end()};
    if (is_list) {
        data.resize(std::min<size_t>(data.size(), control.length));
        entry_ = {.command = "list-commands"};
    } else {
        auto const address = BlockAddress(control.value);
        entry_ = {.command = "read", .address = address, .size = control.length};
        if (!IsOpen(address) || !Memory().Contains(address, control.length)) {
            return Stall(DfuStatus::kTarget, "address");
        }
        data = Memory().Read(address, control.length);
    }
    Finish(Outcome::kAck);
    // A short block is the last one.
    state_ = data.size() < control.length ? DfuState::kIdle : DfuState::kUploadIdle;
    return Done(std::move(data));
}

DfuAnswer DfuseBootloader::GetStatus(TimePoint now)
{
    if (state_ == DfuState::kDownloadSync) {
        Begin(now);
        if (IsHung()) {
            return NoAnswer();
        }
        state_ = DfuState::kDownloadBusy;
        return Done(MakeStatus(stuck_ ? kStuckPollTimeout : ToPollTimeout(busy_until_ - now)));
    }
    if (state_ == DfuState::kDownloadBusy) {
        if (stuck_ || now < busy_until_) {
            return Done(MakeStatus(stuck_ ? kStuckPollTimeout : ToPollTimeout(busy_until_ - now)));
        }
        status_ = result_;
        state_ = status_ == 0 ? DfuState::kDownloadIdle : DfuState::kError;
    } else if (state_ == DfuState::kManifestSync) {
        state_ = DfuState::kManifest;
        running_ = true;
        Leave();
    }
    return Done(MakeStatus(0));
}

DfuAnswer DfuseBootloader::ClearStatus()
{
    entry_ = {.command = "clear-status"};
    if (state_ != DfuState::kError) {
        return Stall(DfuStatus::kStalledPacket, "state");
    }
    Finish(Outcome::kAck);
    state_ = DfuState::kIdle;
    status_ = 0;
    return Done();
}

DfuAnswer DfuseBootloader::Abort()
{
    entry_ = {.command = "abort"};
    if (state_ == DfuState::kDownloadBusy || state_ == DfuState::kError) {
        return Stall(DfuStatus::kStalledPacket, "state");
    }
    Finish(Outcome::kAck);
    state_ = DfuState::kIdle;
    return Done();
}

DfuAnswer DfuseBootloader::Stall(DfuStatus status, std::string reason)
{
    Finish(Outcome::kNack, std::move(reason));
    state_ = DfuState::kError;
    status_ = static_cast<uint8_t>(status);
    return {DfuAnswer::Kind::kStall};
}

bool DfuseBootloader::CommandFaultStrikes()
{
    auto const faults = Faults().Strike(FaultMoment::kCommand);
    if (!faults.empty()) {
        Hang(faults.front().kind);
    }
    return IsHung();
}

// Carries out the download at once; for the client it is done when the chip would be done.
void DfuseBootloader::Begin(TimePoint now)
{
    result_ = 0;
    std::chrono::microseconds busy{0};
    switch (pending_.operation) {
        case Operation::kSetAddress:
            SetAddress();
            break;
        case Operation::kErasePage:
        case Operation::kEraseAll:
            busy = Erase();
            break;
        case Operation::kWrite:
            busy = Write();
            break;
    }
    busy_until_ = now + busy;
}

void DfuseBootloader::SetAddress()
{
    entry_ = {.command = "set-address", .address = pending_.address};
    if (!IsOpen(pending_.address)) {
        Fail(static_cast<uint8_t>(DfuStatus::kTarget), "address");
        return;
    }
    Finish(Outcome::kAck);
    address_pointer_ = pending_.address;
}

std::chrono::microseconds DfuseBootloader::Erase()
{
    auto const& chip = options_.chip;
    bool const is_all = pending_.operation == Operation::kEraseAll;
    entry_ = {.command = "erase", .pages = is_all ? "all" : ""};
    if (!is_all) {
        entry_.address = pending_.address;
        if (Memory().KindAt(pending_.address) != MemoryKind::kFlash) {
            Fail(static_cast<uint8_t>(DfuStatus::kTarget), "address");
            return {};
        }
    }
    auto busy = is_all ? 2 * options_.times.mass_erase : options_.times.page_erase;
    if (OperationFaultStrikes(FaultMoment::kErase, busy)) {
        return busy;
    }
    auto const page = is_all ? 0 : (pending_.address - kFlashStart) / chip.page_size;
    Memory().EraseFlash(page * chip.page_size, is_all ? chip.flash_size : chip.page_size);
    erased_pages_ += is_all ? chip.Pages() : 1;
    Finish(Outcome::kAck);
    return busy;
}

std::chrono::microseconds DfuseBootloader::Write()
{
    auto const& [operation, address, data] = pending_;
    entry_ = {.command = "write", .address = address, .size = data.size()};
    if (!IsOpen(address) || !Memory().Contains(address, data.size())) {
        Fail(static_cast<uint8_t>(DfuStatus::kTarget), "address");
        return {};
    }
    if (RefusesUnits(address, data.size())) {
        Fail(static_cast<uint8_t>(DfuStatus::kWrite), "alignment");
        return {};
    }
    auto busy = options_.times.Program(data.size());
    if (OperationFaultStrikes(FaultMoment::kWrite, busy)) {
        return busy;
    }
    auto lost = StoreWrite(address, data);
    if (!lost.empty() && options_.chip.write_habits.reports_errors) {
        Fail(static_cast<uint8_t>(DfuStatus::kWrite), std::move(lost));
        return busy;
    }
    ++writes_;
    Finish(Outcome::kAck, std::move(lost));
    return busy;
}

// True when a fault keeps the operation from being carried out.
bool DfuseBootloader::OperationFaultStrikes(FaultMoment moment, std::chrono::microseconds& busy)
{
    bool is_kept = false;
    for (auto const& fault : Faults().Strike(moment)) {
        if (fault.kind == FaultKind::kSlowErase) {
            busy += std::chrono::milliseconds(fault.parameter);
            continue;
        }
        if (is_kept) {
            continue;
        }
        is_kept = true;
        if (fault.kind == FaultKind::kErrorInErase || fault.kind == FaultKind::kErrorInWrite) {
            Fail(static_cast<uint8_t>(fault.parameter), "fault");
        } else if (fault.kind == FaultKind::kStuckInWrite) {
            Finish(Outcome::kSilent, "fault");
            stuck_ = true;
        } else {
            Hang(fault.kind);
        }
    }
    return is_kept;
}

void DfuseBootloader::Fail(uint8_t status, std::string reason)
{
    Finish(Outcome::kNack, std::move(reason));
    result_ = status;
}

// The answer to a status request (DFU 1.1, 6.1.2): status, time until the next request in
// milliseconds, state, and the index of a text that does not exist.
std::vector<std::byte> DfuseBootloader::MakeStatus(uint32_t poll_timeout_ms) const
{
    return {static_cast<std::byte>(status_),
            static_cast<std::byte>(poll_timeout_ms & 0xFF),
            static_cast<std::byte>((poll_timeout_ms >> 8) & 0xFF),
            static_cast<std::byte>((poll_timeout_ms >> 16) & 0xFF),
            static_cast<std::byte>(state_),
            std::byte{0}};
}

uint32_t DfuseBootloader::BlockAddress(unsigned number) const
{
    return address_pointer_ + (number - kFirstDataBlock) * static_cast<uint32_t>(kDfuTransferSize);
}

}  // namespace simulator
