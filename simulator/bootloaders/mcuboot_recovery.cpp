#include "simulator/bootloaders/mcuboot_recovery.h"

#include <fmt/format.h>

#include <QCborArray>
#include <QtEndian>
#include <algorithm>
#include <span>
#include <string>
#include <utility>

namespace simulator {
namespace {

// A request's operation, group and command in one number, for the switches below.
constexpr uint32_t KindOf(uint8_t operation, uint16_t group, uint8_t command)
{
    return uint32_t{operation} << 24 | uint32_t{group} << 8 | command;
}
constexpr uint32_t kImageState = KindOf(kReadRequest, 1, 0);
constexpr uint32_t kUpload = KindOf(kWriteRequest, 1, 1);
constexpr uint32_t kErase = KindOf(kWriteRequest, 1, 5);
constexpr uint32_t kReset = KindOf(kWriteRequest, 0, 5);
constexpr uint32_t kReadOtp = KindOf(kReadRequest, 64, 0);

uint32_t KindOf(SmpMessage const& request)
{
    return KindOf(request.operation, request.group, request.command);
}

std::string GetName(SmpMessage const& request)
{
    switch (KindOf(request)) {
        case kImageState:
            return "image-state";
        case kUpload:
            return "upload";
        case kErase:
            return "erase-slot";
        case kReset:
            return "reset";
        case kReadOtp:
            return "read-otp";
        default:
            return fmt::format("request-{}/{}/{}", request.operation, request.group,
                               request.command);
    }
}

std::string JoinKeys(std::vector<CborEntry> const& entries)
{
    std::string keys;
    for (auto const& entry : entries) {
        keys += (keys.empty() ? "" : ",") + entry.key.toStdString();
    }
    return keys;
}

// The first value under `key`; an undefined one when there is none.
QCborValue Find(std::vector<CborEntry> const& entries, QLatin1String key)
{
    auto const found = std::ranges::find(entries, key, &CborEntry::key);
    return found == entries.end() ? QCborValue() : found->value;
}

// There is one slot, 0, which is also meant when a request names none.
bool NamesOtherSlot(std::vector<CborEntry> const& entries)
{
    auto const slot = Find(entries, QLatin1String("image"));
    return !slot.isUndefined() && slot != QCborValue(0);
}

QCborMap MakeResult(uint32_t error_code)
{
    return {{QStringLiteral("rc"), qint64{error_code}}};
}

// The offset is sent as the signed number of 32 bits that the client reads.
QCborMap MakeUploadResult(uint32_t next_offset)
{
    auto map = MakeResult(0);
    map.insert(QLatin1String("off"), qint64{static_cast<int32_t>(next_offset)});
    return map;
}

QByteArray ToByteArray(std::span<std::byte const> bytes)
{
    return {reinterpret_cast<char const*>(bytes.data()), static_cast<qsizetype>(bytes.size())};
}

}  // namespace

McubootRecovery::McubootRecovery(McubootRecoveryOptions options)
    : SerialBootloader(kMcubootFaultKinds), options_(std::move(options))
{
    Memory().AddRegion(MemoryKind::kFlash, kFlashStart,
                       std::vector(options_.chip.flash_size, std::byte{0xFF}));
    BeDeafWhileBusy();
}

void McubootRecovery::Reset()
{
    state_ = UnitState::kWaitingForSync;
    line_.clear();
    upload_ = {};
    SerialBootloader::Reset();
    Talk("*** Booting MCUboot ***\r\n");
}

void McubootRecovery::Talk(std::string_view first_line)
{
    if (!options_.talks) {
        return;
    }
    Print(first_line);
    for (int line = 1; line < kTalkLines; ++line) {
        Print(kForeignLine, kTalkPause);
    }
}

UnitStatus McubootRecovery::Status() const
{
    UnitStatus status;
    status.state = state_;
    status.connects = connects_;
    status.erased_pages = erased_pages_;
    status.writes = writes_;
    status.programmed_over_unerased = Memory().ProgrammedOverUnerased();
    status.fault_strikes = Faults().Strikes();
    if (upload_.begun) {
        status.image_size = upload_.size;
        status.stored = upload_.next_offset;
    }
    return status;
}

void McubootRecovery::Take(std::byte byte)
{
    if (state_ == UnitState::kRunning) {
        return;
    }
    auto const character = static_cast<char>(byte);
    if (character == '\n') {
        HandleLine(std::exchange(line_, {}));
    } else if (static_cast<size_t>(line_.size()) < options_.line_buffer) {
        line_.append(character);
    }
}

void McubootRecovery::HandleLine(QByteArray const& line)
{
    auto const fits = static_cast<size_t>(line.size()) < options_.line_buffer;
    auto const request = fits ? ReadSmpRequest(line) : SmpRequest{{}, "too-long"};
    if (request.message) {
        Handle(*request.message);
    } else {
        entry_ = {.command = "line"};
        Finish(Outcome::kSilent, std::string(request.problem));
    }
}

void McubootRecovery::Handle(SmpMessage const& request)
{
    auto const entries = ReadCborMap(request.payload);
    entry_ = {.command = GetName(request)};
    entry_.sequence = request.sequence;
    entry_.keys = entries ? JoinKeys(*entries) : std::string();
    if (!entries) {
        Refuse(request, kRcInvalidValue);
    } else if (!CommandFaultStrikes(request)) {
        state_ = UnitState::kSynchronised;
        Dispatch(request, *entries);
    }
}

bool McubootRecovery::CommandFaultStrikes(SmpMessage const& request)
{
    auto const striking = Faults().Strike(FaultMoment::kCommand);
    if (striking.empty()) {
        return false;
    }
    auto const& fault = striking.front();
    if (fault.kind == FaultKind::kErrorCode) {
        Refuse(request, fault.parameter);
    } else {
        Hang(fault.kind);
    }
    return true;
}

void McubootRecovery::Dispatch(SmpMessage const& request, Entries const& entries)
{
    switch (KindOf(request)) {
        case kImageState:
            AnswerImageState(request);
            return;
        case kReadOtp:
            AnswerOtp(request, entries);
            return;
        case kUpload:
            TakeChunk(request, entries);
            return;
        case kErase:
            EraseSlot(request);
            return;
        case kReset:
            RestartUnit(request);
            return;
        default:
            Refuse(request, kRcNotSupported);
    }
}

void McubootRecovery::AnswerImageState(SmpMessage const& request)
{
    ++connects_;
    QCborMap const image{{QStringLiteral("slot"), 0},
                         {QStringLiteral("version"), QStringLiteral("0.0.0")}};
    Complete(request, {{QStringLiteral("images"), QCborArray{image}}, {QStringLiteral("rc"), 0}});
}

void McubootRecovery::AnswerOtp(SmpMessage const& request, Entries const& entries)
{
    auto const key = Find(entries, QLatin1String("key"));
    if (!key.isInteger() || key.toInteger() > 0xFFFFFFFF) {
        Refuse(request, kRcInvalidValue);
        return;
    }
    entry_.address = static_cast<uint32_t>(key.toInteger());
    auto const found = options_.otp.find(*entry_.address);
    if (found == options_.otp.end()) {
        Refuse(request, kRcNotFound);
        return;
    }
    auto answer = MakeResult(0);
    answer.insert(QLatin1String("data"), ToByteArray(found->second));
    Complete(request, answer);
}

void McubootRecovery::EraseSlot(SmpMessage const& request)
{
    constexpr int kBanks = 2;
    Memory().EraseFlash(0, options_.chip.flash_size);
    erased_pages_ += options_.chip.Pages();
    upload_ = {};
    Complete(request, MakeResult(0), kBanks * options_.times.mass_erase + GetDelayOfErase());
}

void McubootRecovery::RestartUnit(SmpMessage const& request)
{
    Complete(request, MakeResult(0));
    state_ = UnitState::kRunning;
    Talk("*** Booting application ***\r\n");
}

void McubootRecovery::TakeChunk(SmpMessage const& request, Entries const& entries)
{
    auto const data = Find(entries, QLatin1String("data"));
    auto const offset = Find(entries, QLatin1String("off"));
    auto const image_size = Find(entries, QLatin1String("len"));
    if (!data.isByteArray() || !offset.isInteger() || NamesOtherSlot(entries)) {
        Refuse(request, kRcInvalidValue);
        return;
    }
    Chunk chunk{data.toByteArray(), static_cast<uint64_t>(offset.toInteger()), {}};
    if (image_size.isInteger()) {
        chunk.image_size = static_cast<uint64_t>(image_size.toInteger());
    }
    entry_.address = static_cast<uint32_t>(chunk.offset);
    entry_.size = static_cast<size_t>(chunk.data.size());
    if (UploadFaultStrikes(request)) {
        return;
    }
    if (!IsStorable(chunk)) {
        Refuse(request, kRcInvalidValue);
        return;
    }
    bool const omit_offset = !Faults().Strike(FaultMoment::kWriteData).empty();
    auto const busy = Store(chunk);
    Complete(request, omit_offset ? MakeResult(0) : MakeUploadResult(upload_.next_offset), busy);
}

// True when the request ends here.
bool McubootRecovery::UploadFaultStrikes(SmpMessage const& request)
{
    auto const striking = Faults().Strike(FaultMoment::kWrite);
    if (striking.empty()) {
        return false;
    }
    auto const& fault = striking.front();
    if (fault.kind == FaultKind::kErrorInUpload) {
        Refuse(request, fault.parameter);
    } else if (fault.kind == FaultKind::kAskForOffset || fault.kind == FaultKind::kKeepOffset) {
        auto const next =
            fault.kind == FaultKind::kAskForOffset ? fault.parameter : *entry_.address;
        if (upload_.begun) {
            upload_.next_offset = next;
        }
        Finish(Outcome::kNack, "fault");
        SendAnswer(request, MakeUploadResult(next));
    } else {
        Hang(fault.kind);
    }
    return true;
}

// Whether a chunk is part of an image that fits into the slot. No chunk begins at the image's end,
// which may be the end of flash.
bool McubootRecovery::IsStorable(Chunk const& chunk) const
{
    auto const size = static_cast<uint64_t>(chunk.data.size());
    if (chunk.offset != 0) {
        return upload_.begun && chunk.offset < upload_.size && size <= upload_.size - chunk.offset;
    }
    return chunk.image_size && *chunk.image_size <= options_.chip.flash_size &&
           size <= *chunk.image_size;
}

// Stores only the chunk that is due; the offset in the answer says which one that is.
std::chrono::microseconds McubootRecovery::Store(Chunk const& chunk)
{
    std::chrono::microseconds busy{0};
    if (chunk.offset == 0) {
        busy += StartUpload(static_cast<uint32_t>(chunk.image_size.value_or(0)));
    }
    if (chunk.offset == upload_.next_offset) {
        auto const bytes = std::as_bytes(std::span(chunk.data));
        Memory().Write(kFlashStart + static_cast<uint32_t>(chunk.offset), bytes);
        upload_.next_offset += static_cast<uint32_t>(bytes.size());
        ++writes_;
        busy += options_.times.Program(bytes.size());
    }
    return busy;
}

// Erases the pages of the whole image, so that the rest of the upload need not wait.
std::chrono::microseconds McubootRecovery::StartUpload(uint32_t size)
{
    auto const page_size = options_.chip.page_size;
    auto const pages = (size + page_size - 1) / page_size;
    Memory().EraseFlash(0, pages * page_size);
    erased_pages_ += static_cast<unsigned>(pages);
    upload_ = {true, size, 0};
    return static_cast<int>(pages) * options_.times.page_erase + GetDelayOfErase();
}

std::chrono::microseconds McubootRecovery::GetDelayOfErase()
{
    std::chrono::milliseconds delay{0};
    for (auto const& fault : Faults().Strike(FaultMoment::kErase)) {
        delay += std::chrono::milliseconds(fault.parameter);
    }
    return delay;
}

void McubootRecovery::Refuse(SmpMessage const& request, uint32_t error_code)
{
    Finish(Outcome::kNack, fmt::format("rc={}", error_code));
    SendAnswer(request, MakeResult(error_code));
}

void McubootRecovery::Complete(SmpMessage const& request, QCborMap const& answer,
                               std::chrono::microseconds busy)
{
    Finish(Outcome::kAck);
    SendAnswer(request, answer, busy);
}

void McubootRecovery::SendAnswer(SmpMessage const& request, QCborMap const& answer,
                                 std::chrono::microseconds busy)
{
    auto block =
        MakeSmpAnswer({static_cast<uint8_t>(request.operation + 1), request.group, request.sequence,
                       request.command, EncodeCborMap(answer, options_.definite_maps)});
    for (auto const& fault : Faults().Strike(FaultMoment::kCountedBlock)) {
        auto const is_length = fault.kind == FaultKind::kWrongCount;
        auto const field = is_length ? 0 : block.size() - 2;
        auto const kept = is_length ? 0U : qFromBigEndian<uint16_t>(block.constData() + field);
        qToBigEndian(static_cast<uint16_t>(kept ^ fault.parameter), block.data() + field);
    }
    auto const lines = MakeSmpLines(block, static_cast<qsizetype>(options_.answer_line));
    auto const bytes = std::as_bytes(std::span(lines));
    if (options_.log_lines) {
        Print(kForeignLine);
        busy += options_.line_pause;
    }
    Send({bytes.begin(), bytes.end()}, busy, options_.line_pause);
}

}  // namespace simulator
