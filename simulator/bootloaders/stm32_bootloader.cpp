#include "simulator/bootloaders/stm32_bootloader.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

namespace simulator {
namespace {

constexpr std::byte kSync{0x7F};

// Command codes (AN3155, "USART bootloader command set").
constexpr uint8_t kGet = 0x00;
constexpr uint8_t kGetVersion = 0x01;
constexpr uint8_t kGetId = 0x02;
constexpr uint8_t kReadMemory = 0x11;
constexpr uint8_t kGo = 0x21;
constexpr uint8_t kWriteMemory = 0x31;
constexpr uint8_t kEraseMemory = 0x43;
constexpr uint8_t kExtendedErase = 0x44;

// Extended Erase: from this count on, the count is a special code and no page list follows.
constexpr unsigned kFirstSpecialErase = 0xFFF0;
constexpr unsigned kEraseSecondBank = 0xFFFD;
constexpr unsigned kEraseFirstBank = 0xFFFE;
constexpr unsigned kEraseAll = 0xFFFF;

// The vector table, which an application begins with: stack pointer and start address.
constexpr size_t kVectorSize = 4;
constexpr size_t kMarkerSize = 4;

constexpr unsigned ToUnsigned(std::byte byte)
{
    return std::to_integer<unsigned>(byte);
}

unsigned ToUnsigned(std::span<std::byte const> big_endian)
{
    return std::accumulate(big_endian.begin(), big_endian.end(), 0U,
                           [](unsigned value, std::byte b) { return value << 8 | ToUnsigned(b); });
}

// True when the XOR over a block and its check byte is 0.
bool ChecksumHolds(std::span<std::byte const> bytes)
{
    return std::accumulate(bytes.begin(), bytes.end(), std::byte{0},
                           [](std::byte a, std::byte b) { return a ^ b; }) == std::byte{0};
}

std::string GetCommandName(uint8_t code)
{
    switch (code) {
        case kGet:
            return "get";
        case kGetVersion:
            return "get-version";
        case kGetId:
            return "get-id";
        case kReadMemory:
            return "read";
        case kGo:
            return "go";
        case kWriteMemory:
            return "write";
        case kEraseMemory:
            return "erase";
        case kExtendedErase:
            return "extended-erase";
        default:
            return fmt::format("command-0x{:02x}", code);
    }
}

}  // namespace

std::vector<uint8_t> ListCommands(EraseCommands erase_commands)
{
    std::vector<uint8_t> codes{kGet, kGetVersion, kGetId, kReadMemory, kGo, kWriteMemory};
    if (erase_commands == EraseCommands::kLegacy || erase_commands == EraseCommands::kBoth) {
        codes.push_back(kEraseMemory);
    }
    if (erase_commands == EraseCommands::kExtended || erase_commands == EraseCommands::kBoth) {
        codes.push_back(kExtendedErase);
    }
    return codes;
}

Stm32Bootloader::Stm32Bootloader(Stm32BootloaderOptions options)
    : SerialBootloader(kStm32FaultKinds), options_(std::move(options))
{
    AddMemoryOf(options_.chip, options_.otp);
    auto const marker = options_.boot_mode_address;
    if (marker && !Memory().Contains(*marker, kMarkerSize)) {
        Memory().AddRegion(MemoryKind::kRam, *marker, std::vector(kMarkerSize, std::byte{0}));
    }
}

void Stm32Bootloader::Reset()
{
    state_ = State::kWaitingForSync;
    speed_is_wrong_ = false;
    phase_ = Phase::kCommand;
    buffer_.clear();
    write_cut_.reset();
    SerialBootloader::Reset();
}

UnitStatus Stm32Bootloader::Status() const
{
    return {
        .state = state_,
        .jump_address = jump_address_,
        .marker = Marker(),
        .connects = connects_,
        .erased_pages = erased_pages_,
        .writes = writes_,
        .programmed_over_unerased = Memory().ProgrammedOverUnerased(),
        .fault_strikes = Faults().Strikes(),
    };
}

std::vector<std::byte> Stm32Bootloader::Marker() const
{
    return options_.boot_mode_address ? Memory().Read(*options_.boot_mode_address, kMarkerSize)
                                      : std::vector<std::byte>{};
}

void Stm32Bootloader::Take(std::byte byte)
{
    if (state_ == State::kRunning) {
        return;
    }
    if (state_ == State::kWaitingForSync) {
        Synchronise(byte);
        return;
    }
    buffer_.push_back(byte);
    CutWriteIfDue();
    if (!IsHung() && buffer_.size() >= BytesNeeded()) {
        Handle(std::exchange(buffer_, {}));
    }
}

void Stm32Bootloader::Synchronise(std::byte byte)
{
    if (speed_is_wrong_ || (byte != kSync && !options_.stray_bytes_spoil_sync)) {
        return;
    }
    entry_ = {.command = "sync"};
    if (byte != kSync) {
        Finish(Outcome::kSilent, "speed");
        speed_is_wrong_ = true;
        return;
    }
    state_ = State::kSynchronised;
    ++connects_;
    Complete();
}

// The number of bytes that complete the phase, as far as the bytes collected so far show it.
size_t Stm32Bootloader::BytesNeeded() const
{
    constexpr size_t kAddressAndChecksum = 5;
    switch (phase_) {
        case Phase::kCommand:
        case Phase::kReadCount:
            return 2;
        case Phase::kReadAddress:
        case Phase::kGoAddress:
        case Phase::kWriteAddress:
            return kAddressAndChecksum;
        case Phase::kWriteData:
            return 1 + (ToUnsigned(buffer_[0]) + 1) + 1;
        case Phase::kErasePages: {
            auto const last = ToUnsigned(buffer_[0]);
            return last == 0xFF ? 2 : 1 + (last + 1) + 1;
        }
        case Phase::kExtendedErasePages:
            break;
    }
    if (buffer_.size() < 2) {
        return 2;
    }
    auto const last = ToUnsigned(std::span(buffer_).first(2));
    return last >= kFirstSpecialErase ? 3 : 2 + 2 * (size_t{last} + 1) + 1;
}

void Stm32Bootloader::Handle(std::span<std::byte const> bytes)
{
    switch (std::exchange(phase_, Phase::kCommand)) {
        case Phase::kCommand:
            HandleCommand(bytes);
            return;
        case Phase::kReadAddress:
            HandleReadAddress(bytes);
            return;
        case Phase::kReadCount:
            HandleReadCount(bytes);
            return;
        case Phase::kGoAddress:
            HandleGoAddress(bytes);
            return;
        case Phase::kWriteAddress:
            HandleWriteAddress(bytes);
            return;
        case Phase::kWriteData:
            HandleWriteData(bytes);
            return;
        case Phase::kErasePages:
            HandleErasePages(bytes);
            return;
        case Phase::kExtendedErasePages:
            HandleExtendedErasePages(bytes);
            return;
    }
}

void Stm32Bootloader::HandleCommand(std::span<std::byte const> bytes)
{
    auto const code = std::to_integer<uint8_t>(bytes[0]);
    entry_ = {.command = GetCommandName(code)};
    if (bytes[1] != ~bytes[0]) {
        Refuse("complement");
        return;
    }
    if (CommandFaultStrikes() || (code == kWriteMemory && WriteFaultStrikes())) {
        return;
    }
    if (std::ranges::find(options_.commands, code) == options_.commands.end()) {
        Refuse("unknown");
        return;
    }
    Start(code);
}

bool Stm32Bootloader::CommandFaultStrikes()
{
    auto const striking = Faults().Strike(FaultMoment::kCommand);
    if (striking.empty()) {
        return false;
    }
    if (striking.front().kind == FaultKind::kNackCommand) {
        Refuse("fault");
    } else {
        Hang(striking.front().kind);
    }
    return true;
}

// True when the write ends here; a fault that strikes later, in its data, is kept for then.
bool Stm32Bootloader::WriteFaultStrikes()
{
    write_cut_.reset();
    for (auto const& fault : Faults().Strike(FaultMoment::kWrite)) {
        if (fault.kind == FaultKind::kNackWriteCommand) {
            Refuse("fault");
            return true;
        }
        if (fault.parameter == 0) {
            Hang(fault.kind);
            return true;
        }
        write_cut_ = {fault.kind, fault.parameter};
    }
    return false;
}

void Stm32Bootloader::Start(uint8_t code)
{
    switch (code) {
        case kGet:
            AnswerGet();
            return;
        case kGetVersion:
            AnswerGetVersion();
            return;
        case kGetId:
            AnswerGetId();
            return;
        case kReadMemory:
            StartWith(Phase::kReadAddress);
            return;
        case kGo:
            StartWith(Phase::kGoAddress);
            return;
        case kWriteMemory:
            StartWith(Phase::kWriteAddress);
            return;
        case kEraseMemory:
            StartWith(Phase::kErasePages);
            return;
        case kExtendedErase:
            StartWith(Phase::kExtendedErasePages);
            return;
        default:
            Refuse("unknown");
    }
}

void Stm32Bootloader::StartWith(Phase phase)
{
    Acknowledge();
    phase_ = phase;
}

void Stm32Bootloader::AnswerGet()
{
    Acknowledge();
    std::vector<std::byte> block{std::byte{options_.protocol_version}};
    std::ranges::transform(options_.commands, std::back_inserter(block),
                           [](uint8_t code) { return std::byte{code}; });
    SendCounted(std::move(block));
    Complete();
}

void Stm32Bootloader::AnswerGetVersion()
{
    Acknowledge();
    // Two read-protection bytes follow the version; they are kept for old clients and always 0.
    Send({std::byte{options_.protocol_version}, std::byte{0}, std::byte{0}});
    Complete();
}

void Stm32Bootloader::AnswerGetId()
{
    Acknowledge();
    auto const id = options_.chip.product_id;
    SendCounted({static_cast<std::byte>(id >> 8), static_cast<std::byte>(id & 0xFF)});
    Complete();
}

bool Stm32Bootloader::TakeAddress(std::span<std::byte const> bytes)
{
    address_ = ToUnsigned(bytes.first(4));
    entry_.address = address_;
    if (!ChecksumHolds(bytes)) {
        Refuse("checksum");
        return false;
    }
    if (!IsOpen(address_)) {
        Refuse("address");
        return false;
    }
    return true;
}

// Flash and RAM can be executed; the bootloader loads the stack pointer from there before it jumps.
bool Stm32Bootloader::CanStart(uint32_t address) const
{
    if (Memory().KindAt(address) == MemoryKind::kOtp || !Memory().Contains(address, kVectorSize)) {
        return false;
    }
    auto vector = Memory().Read(address, kVectorSize);
    std::ranges::reverse(vector);
    auto const stack = ToUnsigned(vector);
    bool const is_in_ram = stack > kRamStart && stack - kRamStart <= options_.chip.ram_size;
    return is_in_ram || !options_.go_checks_stack;
}

void Stm32Bootloader::HandleReadAddress(std::span<std::byte const> bytes)
{
    if (TakeAddress(bytes)) {
        StartWith(Phase::kReadCount);
    }
}

void Stm32Bootloader::HandleReadCount(std::span<std::byte const> bytes)
{
    auto const size = size_t{ToUnsigned(bytes[0])} + 1;
    entry_.size = size;
    if (bytes[1] != ~bytes[0]) {
        Refuse("complement");
        return;
    }
    if (!Memory().Contains(address_, size)) {
        Refuse("address");
        return;
    }
    auto data = Memory().Read(address_, size);
    for (auto const& fault : Faults().Strike(FaultMoment::kReadData)) {
        data.front() ^= static_cast<std::byte>(fault.parameter & 0xFF);
    }
    Complete();
    Send(std::move(data));
}

void Stm32Bootloader::HandleGoAddress(std::span<std::byte const> bytes)
{
    if (!TakeAddress(bytes)) {
        return;
    }
    if (!CanStart(address_)) {
        Refuse("target");
        return;
    }
    Complete();
    jump_address_ = address_;
    state_ = State::kRunning;
}

void Stm32Bootloader::HandleWriteAddress(std::span<std::byte const> bytes)
{
    if (!TakeAddress(bytes)) {
        return;
    }
    if (!Faults().Strike(FaultMoment::kWriteAddress).empty()) {
        Refuse("fault");
        return;
    }
    if (RefusesUnits(address_, 0)) {
        Refuse("alignment");
        return;
    }
    StartWith(Phase::kWriteData);
}

void Stm32Bootloader::HandleWriteData(std::span<std::byte const> bytes)
{
    auto const data = bytes.subspan(1, bytes.size() - 2);
    entry_.size = data.size();
    if (!ChecksumHolds(bytes)) {
        Refuse("checksum");
        return;
    }
    if (!Faults().Strike(FaultMoment::kWriteData).empty()) {
        Refuse("fault");
        return;
    }
    if (!Memory().Contains(address_, data.size())) {
        Refuse("address");
        return;
    }
    if (RefusesUnits(address_, data.size())) {
        Refuse("incomplete");
        return;
    }
    auto lost = StoreWrite(address_, data);
    if (!lost.empty() && options_.chip.write_habits.reports_errors) {
        Refuse(std::move(lost));
        return;
    }
    ++writes_;
    bool const is_ram = Memory().KindAt(address_) == MemoryKind::kRam;
    Complete(is_ram ? std::chrono::microseconds{0} : options_.times.Program(data.size()),
             std::move(lost));
}

void Stm32Bootloader::HandleErasePages(std::span<std::byte const> bytes)
{
    if (bytes[0] == std::byte{0xFF}) {
        entry_.pages = "all";
        bool const is_ff_ff = bytes[1] == std::byte{0xFF} && options_.accept_ff_ff_erase;
        if (bytes[1] != std::byte{0x00} && !is_ff_ff) {
            Refuse("checksum");
            return;
        }
        EraseRange("all", 0, options_.chip.Pages(), 2);
        return;
    }
    auto const list = bytes.subspan(1, bytes.size() - 2);
    std::vector<unsigned> pages(list.size());
    std::ranges::transform(list, pages.begin(), [](std::byte page) { return ToUnsigned(page); });
    entry_.pages = PagesToText(pages);
    if (!ChecksumHolds(bytes)) {
        Refuse("checksum");
        return;
    }
    EraseList(pages);
}

void Stm32Bootloader::HandleExtendedErasePages(std::span<std::byte const> bytes)
{
    auto const half = options_.chip.Pages() / 2;
    auto const code = ToUnsigned(bytes.first(2));
    auto const list = bytes.subspan(2, bytes.size() - 3);
    std::vector<unsigned> pages;
    for (size_t i = 0; i < list.size(); i += 2) {
        pages.push_back(ToUnsigned(list.subspan(i, 2)));
    }
    entry_.pages = pages.empty() ? fmt::format("0x{:04x}", code) : PagesToText(pages);
    if (!ChecksumHolds(bytes)) {
        Refuse("checksum");
    } else if (code == kEraseAll) {
        EraseRange("all", 0, 2 * half, 2);
    } else if (code == kEraseFirstBank) {
        EraseRange("bank1", 0, half, 1);
    } else if (code == kEraseSecondBank) {
        EraseRange("bank2", half, half, 1);
    } else if (pages.empty()) {
        Refuse("reserved");
    } else {
        EraseList(pages);
    }
}

void Stm32Bootloader::EraseList(std::vector<unsigned> const& pages)
{
    if (EraseFaultStrikes()) {
        return;
    }
    auto const page_count = options_.chip.Pages();
    if (std::ranges::any_of(pages, [page_count](unsigned page) { return page >= page_count; })) {
        Refuse("page");
        return;
    }
    auto const page_size = options_.chip.page_size;
    for (auto const page : pages) {
        Memory().EraseFlash(page * page_size, page_size);
    }
    erased_pages_ += static_cast<unsigned>(pages.size());
    Complete(static_cast<int>(pages.size()) * options_.times.page_erase);
}

void Stm32Bootloader::EraseRange(std::string name, unsigned first_page, unsigned pages,
                                 unsigned banks)
{
    entry_.pages = std::move(name);
    if (EraseFaultStrikes()) {
        return;
    }
    auto const page_size = options_.chip.page_size;
    Memory().EraseFlash(first_page * page_size, pages * page_size);
    erased_pages_ += pages;
    Complete(static_cast<int>(banks) * options_.times.mass_erase);
}

bool Stm32Bootloader::EraseFaultStrikes()
{
    if (Faults().Strike(FaultMoment::kErase).empty()) {
        return false;
    }
    Refuse("fault");
    return true;
}

// A cut past the end of the data strikes with its last byte, before anything is programmed.
void Stm32Bootloader::CutWriteIfDue()
{
    if (phase_ != Phase::kWriteData || !write_cut_) {
        return;
    }
    if (buffer_.size() >= std::min(1 + write_cut_->bytes, BytesNeeded())) {
        Hang(write_cut_->kind);
    }
}

void Stm32Bootloader::Refuse(std::string reason)
{
    Finish(Outcome::kNack, std::move(reason));
    phase_ = Phase::kCommand;
    Send({options_.ack_pair.nack});
}

void Stm32Bootloader::Complete(std::chrono::microseconds busy, std::string lost)
{
    Finish(Outcome::kAck, std::move(lost));
    Acknowledge(busy);
}

void Stm32Bootloader::Acknowledge(std::chrono::microseconds busy)
{
    Send({options_.ack_pair.ack}, busy);
}

void Stm32Bootloader::SendCounted(std::vector<std::byte> bytes)
{
    bytes.insert(bytes.begin(), static_cast<std::byte>((bytes.size() - 1) & 0xFF));
    for (auto const& fault : Faults().Strike(FaultMoment::kCountedBlock)) {
        bytes.front() = static_cast<std::byte>(fault.parameter & 0xFF);
    }
    Send(std::move(bytes));
}

}  // namespace simulator
