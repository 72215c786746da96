#include "tests/cuts/virtual_mcuboot_session.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <span>
#include <utility>

#include "mcuboot/limits.h"
#include "mcuboot/queries.h"
#include "mcuboot/upload.h"
#include "simulator/line/line_pacer.h"
#include "tests/cuts/virtual_line.h"
#include "tests/support/pattern_image.h"

namespace cuts {
namespace {

using namespace std::chrono_literals;
using mcuboot::Outcome;

constexpr unsigned kBaud = 921600;  // the default
constexpr size_t kChunk = 1483;
// Four chunks, the last one short. A multiple of every chip's unit of programming.
constexpr size_t kMcubootImageSize = 3 * kChunk + 15;
constexpr std::byte kModel{7};
constexpr char kStartOfAnswer[] = "\x06\x09";

// No session takes longer, even if every answer is late and the unit goes back again and again.
constexpr Time kMcubootEndless = 10min;

// For limits that are counted in waits of 3 ms.
constexpr Time kMargin = 100ms;

McubootSetup MakeMcubootSetup(uint16_t product_id, std::string const& option)
{
    McubootSetup setup;
    setup.name = fmt::format("0x{:03x}{}", product_id, option);
    setup.unit.chip = simulator::FindChip(product_id).value();
    setup.unit.chip.flash_size = 4 * setup.unit.chip.page_size;
    setup.unit.otp = {{simulator::kModelIdKey, {kModel}}};
    setup.unit.times = simulator::kRealTimes;
    return setup;
}

}  // namespace

std::vector<McubootSetup> ListMcubootSetups()
{
    std::vector<McubootSetup> setups;
    for (auto const& chip : simulator::kChips) {
        setups.push_back(MakeMcubootSetup(chip.product_id, ""));
    }
    auto const first = simulator::kChips.front().product_id;
    setups.push_back(MakeMcubootSetup(first, ", maps of definite length"));
    setups.back().unit.definite_maps = true;
    setups.push_back(MakeMcubootSetup(first, ", answers in several lines"));
    setups.back().unit.answer_line = 16;
    setups.push_back(MakeMcubootSetup(first, ", a banner and a console"));
    setups.back().unit.talks = true;
    // A unit that works between its log's line and the answer, or pauses for longer between two
    // lines, cannot be updated; see docs/known-limits.md.
    setups.push_back(MakeMcubootSetup(first, ", a log line before each answer"));
    setups.back().unit.log_lines = true;
    setups.back().unit.times = {};
    setups.push_back(MakeMcubootSetup(first, ", short pauses between all lines"));
    setups.back().unit.log_lines = true;
    setups.back().unit.times = {};
    setups.back().unit.answer_line = 16;
    setups.back().unit.line_pause = 2ms;
    return setups;
}

McubootBench::McubootBench(McubootSetup setup)
    : setup_(std::move(setup)),
      unit_(setup_.unit),
      image_(PatternImage<QByteArray>(kMcubootImageSize)),
      flash_before_(setup_.unit.chip.flash_size, std::byte{0xFF})
{
    // The firmware of before, and data of its own in the last page.
    auto old_image = PatternImage(kMcubootImageSize);
    std::ranges::reverse(old_image);
    std::ranges::copy(old_image, flash_before_.begin());
    flash_before_.back() = std::byte{0x5A};
    new_flash_ = FlashAfter(kRestart);

    mcuboot::Exchange exchange;
    Restore();
    sound_ = Try(exchange, {});
}

// The unit as it is before each session.
void McubootBench::Restore()
{
    unit_.Faults().Clear();
    unit_.GetJournal().Clear();
    unit_.Memory().Load(simulator::kFlashStart, flash_before_);
    ResetUnit();
}

// What it has not sent by then is lost.
void McubootBench::ResetUnit()
{
    unit_.TakeUnasked();
    unit_.Reset();
}

// The whole flash after so many requests. The first chunk erases the pages of the image.
std::vector<std::byte> McubootBench::FlashAfter(size_t requests) const
{
    auto flash = flash_before_;
    if (requests > kFirstChunk) {
        auto const page = setup_.unit.chip.page_size;
        auto const erased = (kMcubootImageSize + page - 1) / page * page;
        std::fill_n(flash.begin(), erased, std::byte{0xFF});
        auto const bytes = std::as_bytes(std::span(image_));
        auto const size = std::min((requests - kFirstChunk) * kChunk, kMcubootImageSize);
        std::ranges::copy(bytes.first(size), flash.begin());
    }
    return flash;
}

// What the backend does from the moment when a unit is found. If the unit prints a banner, from
// when it has done so: the program asks such a unit again.
McubootBench::Attempt McubootBench::Try(mcuboot::Exchange& exchange, SessionFaults const& faults)
{
    VirtualWire wire(unit_, kBaud, simulator::kBitsPerByte8N1, faults.wire);
    for (auto const& fault : faults.unit) {
        unit_.Faults().Add(fault);
    }
    if (setup_.unit.talks) {
        wire.Pass(simulator::kTalkLines * simulator::kTalkPause);
    }
    VirtualLine line(wire);
    exchange.Attach(line);
    Attempt attempt;
    Converse(exchange, attempt, image_);
    exchange.Detach();
    attempt.is_running = unit_.Status().state == simulator::UnitState::kRunning;
    attempt.time = wire.Now();
    attempt.bytes = {wire.SentToUnit(), wire.SentToHost()};
    attempt.requests = line.Requests();
    attempt.received = line.Received();
    attempt.trace_hash = wire.TraceHash();
    attempt.flash = unit_.Memory().Read(simulator::kFlashStart, setup_.unit.chip.flash_size);
    return attempt;
}

void McubootBench::Converse(mcuboot::Exchange& exchange, Attempt& attempt, QByteArray const& image)
{
    attempt.outcome = mcuboot::QueryImageState(exchange).outcome;
    if (attempt.outcome != Outcome::kSuccess) {
        return;
    }
    attempt.last_request = 1;
    auto const model = mcuboot::QueryOtp(exchange, simulator::kModelIdKey);
    attempt.outcome = model.answer.outcome;
    attempt.is_verified = attempt.outcome == Outcome::kSuccess &&
                          static_cast<std::byte>(model.data.front()) == kModel;
    if (!attempt.is_verified) {
        return;
    }
    auto const upload = mcuboot::Upload(exchange, image, {});
    attempt.last_request = kFirstChunk + static_cast<size_t>(std::max(upload.offset, 0)) / kChunk;
    attempt.outcome = upload.outcome;
    attempt.is_updated = upload.outcome == Outcome::kSuccess;
    if (attempt.is_updated) {
        attempt.last_request = kRestart;
        mcuboot::Reset(exchange);
    }
}

SessionEnd McubootBench::Classify(Attempt const& attempt) const
{
    bool const is_complete = attempt.flash == new_flash_;
    if (attempt.is_updated) {
        return !is_complete         ? SessionEnd::kWrongFlash
               : attempt.is_running ? SessionEnd::kUpdated
                                    : SessionEnd::kNotRestarted;
    }
    if (attempt.flash == flash_before_) {
        bool const is_refused = attempt.last_request == 1 && attempt.outcome == Outcome::kSuccess;
        return is_refused ? SessionEnd::kRefused : SessionEnd::kFailedUntouched;
    }
    if (is_complete) {
        return SessionEnd::kFailedComplete;
    }
    auto const chunk_begin = static_cast<std::ptrdiff_t>((kChunks - 1) * kChunk);
    bool const has_end =
        std::equal(new_flash_.begin() + chunk_begin, new_flash_.begin() + kMcubootImageSize,
                   attempt.flash.begin() + chunk_begin);
    return has_end ? SessionEnd::kFailedWrongFlash : SessionEnd::kFailedIncomplete;
}

SessionVerdict McubootBench::Judge(Attempt const& attempt, mcuboot::Exchange& exchange)
{
    SessionVerdict verdict;
    verdict.end = Classify(attempt);
    verdict.trace_hash = attempt.trace_hash;
    verdict.report = fmt::format("request {}, outcome {}", attempt.last_request,
                                 static_cast<int>(attempt.outcome));
    verdict.problem = CheckSecondAttempt(exchange, attempt.requests.size());
    return verdict;
}

// The unit is reset and plugged in again, by the same program.
std::string McubootBench::CheckSecondAttempt(mcuboot::Exchange& exchange, size_t requests)
{
    unit_.Faults().Clear();
    ResetUnit();
    auto const [known, is_new] = second_attempts_.try_emplace(
        {unit_.Memory().Read(simulator::kFlashStart, setup_.unit.chip.flash_size), requests % 256});
    if (is_new && Classify(Try(exchange, {})) != SessionEnd::kUpdated) {
        known->second = "the second attempt";
    }
    return known->second;
}

size_t McubootBench::FindRequest(WireFault const& fault) const
{
    auto const direction = static_cast<size_t>(fault.direction);
    auto const begins_after = [&](auto const& begin) {
        return begin.at(direction) > fault.position;
    };
    // What comes before the first request meets its answer.
    auto const next =
        std::find_if(sound_.requests.begin() + 1, sound_.requests.end(), begins_after);
    return static_cast<size_t>(next - sound_.requests.begin()) - 1;
}

// Whether the program discards this byte before it asks for anything.
bool McubootBench::IsInBanner(WireFault const& fault) const
{
    return fault.direction == Direction::kToHost && fault.position < sound_.requests.front()[1];
}

// How a request before the restart ends when its answer ends in front of this byte.
Outcome McubootBench::PredictCut(size_t position, size_t request) const
{
    if (position <= sound_.requests[request][1]) {
        return Outcome::kNoAnswer;
    }
    auto const end = static_cast<qsizetype>(sound_.requests[request + 1][1]);
    auto const begin = static_cast<qsizetype>(position);
    auto const rest = sound_.received.mid(begin, end - begin);
    // Without its last newline an answer is complete, only late; also without all of its padding.
    bool const has_text =
        std::ranges::any_of(rest, [](char byte) { return byte != '=' && byte != '\n'; });
    bool const is_complete = !has_text && (rest == "\n" || sound_.received.at(begin - 1) != '=');
    return is_complete ? Outcome::kSuccess : Outcome::kUnusable;
}

// What a cut or a stall leads to is known exactly.
std::string McubootBench::CheckPrediction(Attempt const& attempt, WireFault const& fault) const
{
    auto const request = FindRequest(fault);
    if (fault.direction == Direction::kToUnit) {
        switch (fault.kind) {
            case WireFaultKind::kCut:
                return CheckFails(attempt, request, Outcome::kNoAnswer, request);
            case WireFaultKind::kStallAbove:
                return CheckFails(attempt, request, Outcome::kNoAnswer, request + 1);
            default:
                return fault.kind == WireFaultKind::kStallBelow
                           ? CheckFails(attempt, kRestart, Outcome::kSuccess, kRestart + 1)
                           : std::string();
        }
    }
    // Nobody waits for the answer to the restart request.
    auto const outcome =
        request == kRestart ? Outcome::kSuccess : PredictCut(fault.position, request);
    // A newline followed by a pause ends an answer, even if another of its lines follows.
    bool const is_line = fault.position > sound_.requests[request][1] && request < kRestart &&
                         sound_.received.at(static_cast<qsizetype>(fault.position) - 1) == '\n';
    switch (fault.kind) {
        case WireFaultKind::kCut:
            return outcome == Outcome::kSuccess && request + 1 < kRestart
                       ? CheckFails(attempt, request + 1, Outcome::kNoAnswer, request + 1)
                   : outcome == Outcome::kSuccess && request + 1 == kRestart
                       ? CheckFails(attempt, kRestart, Outcome::kSuccess, kRestart)
                       : CheckFails(attempt, request, outcome, request + 1);
        case WireFaultKind::kStallAbove:
            return outcome == Outcome::kSuccess
                       ? CheckFails(attempt, kRestart, Outcome::kSuccess, kRestart + 1)
                       : CheckFails(attempt, request, outcome, request + 1);
        case WireFaultKind::kStallBelow:
            return is_line ? CheckFails(attempt, request, Outcome::kUnusable, request + 1)
                           : CheckFails(attempt, kRestart, Outcome::kSuccess, kRestart + 1);
        default:
            return {};
    }
}

Time McubootBench::GetLimit(size_t request)
{
    return request < kFirstChunk ? 2s : request == kFirstChunk ? 10s : request < kRestart ? 3s : 0s;
}

// `effects`: how many requests the unit has carried out.
std::string McubootBench::CheckFails(Attempt const& attempt, size_t request, Outcome outcome,
                                     size_t effects) const
{
    bool const is_restart = request == kRestart;
    auto const expected = is_restart ? Outcome::kSuccess : outcome;
    if (attempt.last_request != request || attempt.outcome != expected) {
        return fmt::format("expected: request {}, outcome {}", request, static_cast<int>(expected));
    }
    if (attempt.flash != FlashAfter(std::min(effects, kRestart)) ||
        attempt.is_running != (effects > kRestart)) {
        return "not the unit that this fault must leave";
    }
    return {};
}

// Why one damaged byte did not make the session fail.
std::string McubootBench::ExplainOne(WireFault const& fault) const
{
    auto const request = FindRequest(fault);
    if (request == kRestart) {
        return "the restart request has no answer that is waited for";
    }
    if (fault.direction == Direction::kToUnit) {
        return fault.value == std::byte{'\n'} ? "an empty line is ignored" : std::string();
    }
    if (IsInBanner(fault)) {
        return "what comes before the first request is discarded";
    }
    auto const end = static_cast<qsizetype>(sound_.requests[request + 1][1]);
    auto const position = static_cast<qsizetype>(fault.position);
    auto const behind = sound_.received.mid(position + 1, end - position - 1);
    if (std::ranges::all_of(behind, [](char byte) { return byte == '=' || byte == '\n'; })) {
        return "what follows an answer's check value does not count, nor does its newline";
    }
    if (behind.contains(kStartOfAnswer)) {
        return "a line without a marker is no part of an answer";
    }
    auto const next = fault.kind == WireFaultKind::kExtraAfter ? position + 1 : position;
    bool const is_line =
        sound_.received.at(next) == '\n' || (next > 0 && sound_.received.at(next - 1) == '\n');
    return is_line ? "an empty line between an answer's lines is ignored" : std::string();
}

SessionVerdict McubootBench::RunWithOne(WireFault const& fault)
{
    mcuboot::Exchange exchange;
    Restore();
    auto const attempt = Try(exchange, {{fault}, {}});
    auto verdict = Judge(attempt, exchange);
    auto const request = FindRequest(fault);
    verdict.problem += CheckPrediction(attempt, fault);
    if (!attempt.is_updated && attempt.last_request != request &&
        fault.kind != WireFaultKind::kCut) {
        verdict.problem += "; another request than the one with the fault";
    }
    if (verdict.end == SessionEnd::kWrongFlash || verdict.end == SessionEnd::kFailedWrongFlash ||
        verdict.end == SessionEnd::kRefused) {
        verdict.problem += "; undetected";
    }
    if (attempt.is_updated && DamagesBytes(fault.kind)) {
        verdict.explanation = ExplainOne(fault);
        verdict.problem += verdict.explanation.empty() ? "; no reason for a success" : "";
    }
    // An answer without its end can use up its limit, and then the next request its own.
    auto const limit = GetLimit(request) + GetLimit(request + 1);
    if (attempt.time > sound_.time + limit + kMargin) {
        verdict.problem += "; it took longer than the limits allow";
    }
    return verdict;
}

SessionVerdict McubootBench::RunWithMany(SessionFaults const& faults)
{
    mcuboot::Exchange exchange;
    Restore();
    auto const attempt = Try(exchange, faults);
    auto verdict = Judge(attempt, exchange);
    if (attempt.time > kMcubootEndless) {
        verdict.problem += "; it took longer than the limits allow";
    }
    if (verdict.end == SessionEnd::kWrongFlash || verdict.end == SessionEnd::kFailedWrongFlash) {
        bool const asks = std::ranges::any_of(faults.unit, [](simulator::Fault const& fault) {
            return fault.kind == simulator::FaultKind::kAskForOffset;
        });
        verdict.explanation =
            asks ? "undetected: the unit asks for an offset beyond what it was sent" : "";
        verdict.problem += asks ? "" : "; undetected";
    }
    return verdict;
}

}  // namespace cuts
