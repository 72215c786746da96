// An MCUboot session in virtual time: the conversation updates a simulated unit request by request.
#include <fmt/format.h>

#include <QByteArray>
#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <span>
#include <utility>

#include "config/startup_config.h"
#include "mcuboot/exchange.h"
#include "mcuboot/limits.h"
#include "mcuboot/queries.h"
#include "mcuboot/upload.h"
#include "simulator/bootloaders/mcuboot_recovery.h"
#include "simulator/line/line_pacer.h"
#include "tests/cuts/virtual_bench.h"
#include "tests/cuts/virtual_line.h"
#include "tests/support/pattern_image.h"

namespace cuts {
namespace {

using namespace std::chrono_literals;
using mcuboot::Outcome;
using FlashBytes = std::vector<std::byte>;

constexpr size_t kChunk = mcuboot::kChunkSize;
// Four chunks, the last one short. A multiple of every chip's unit of programming.
constexpr size_t kChunks = 4;
constexpr size_t kMcubootImageSize = (kChunks - 1) * kChunk + 15;
constexpr std::byte kModel{7};
constexpr char kStartOfAnswer[] = "\x06\x09";

// The requests of a session in their order: the image's state, the model, each chunk, the restart.
constexpr size_t kModelRequest = 1;
constexpr size_t kFirstChunk = 2;
constexpr size_t kRestart = kFirstChunk + kChunks;

// No session takes longer, even if every answer is late and the unit goes back again and again.
constexpr Time kMcubootEndless = 10min;

// For limits that are counted in waits of 3 ms.
constexpr Time kMargin = 100ms;

struct McubootSetup {
    std::string name;
    simulator::McubootRecoveryOptions unit;
};

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

std::vector<McubootSetup> ListMcubootSetups()
{
    std::vector<McubootSetup> setups;
    for (auto const& chip : simulator::kChips) {
        setups.push_back(MakeMcubootSetup(chip.product_id, ""));
    }
    auto const add = [&](char const* option) -> simulator::McubootRecoveryOptions& {
        setups.push_back(MakeMcubootSetup(simulator::kChips.front().product_id, option));
        return setups.back().unit;
    };
    add(", maps of definite length").definite_maps = true;
    add(", answers in several lines").answer_line = 16;
    add(", a banner and a console").talks = true;
    // A unit that works between its log's line and the answer, or pauses for longer between two
    // lines, cannot be updated; see docs/known-limits.md.
    auto& logging = add(", a log line before each answer");
    logging.log_lines = true;
    logging.times = {};
    auto& pausing = add(", short pauses between all lines");
    pausing.log_lines = true;
    pausing.times = {};
    pausing.answer_line = 16;
    pausing.line_pause = 2ms;
    return setups;
}

class McubootBench final : public Bench {
public:
    explicit McubootBench(McubootSetup const& setup)
        : Bench(setup.name),
          setup_(setup),
          unit_(setup_.unit),
          image_(PatternImage<QByteArray>(kMcubootImageSize))
    {
        // The firmware of before, and data of its own in the last page.
        flash_before_ = PatternImage(kMcubootImageSize);
        std::ranges::reverse(flash_before_);
        flash_before_.resize(setup_.unit.chip.flash_size, std::byte{0xFF});
        flash_before_.back() = std::byte{0x5A};
        new_flash_ = FlashAfter(kRestart);

        mcuboot::Exchange exchange;
        Restore();
        sound_ = Try(exchange, {});
        bytes_ = sound_.wire.bytes;
    }

    std::vector<MatrixFault> ListFaults() const override
    {
        using enum WireFaultKind;
        auto const newline = [](size_t) { return std::byte{'\n'}; };
        return {
            {"cut", kCut},
            {"swallowed", kSwallow},
            {"one bit flipped", kFlip, OneBit},
            {"a newline instead", kReplace, newline},
            {"a letter too many", kExtraBefore, [](size_t) { return std::byte{'A'}; }},
            {"a newline too many", kExtraAfter, newline},
            {"stalled just below the limit", kStallBelow},
            {"stalled just above the limit", kStallAbove},
        };
    }

    SessionVerdict RunWithOne(WireFault const& fault) override
    {
        SessionVerdict verdict;
        auto const attempt = Run({{fault}, {}}, verdict);
        auto const request = FindRequest(fault);
        if (auto const prediction = Predict(fault)) {
            verdict.problem += Check(attempt, *prediction);
        }
        if (!attempt.is_updated && attempt.last_request != request &&
            fault.kind != WireFaultKind::kCut) {
            verdict.problem += "; another request than the one with the fault";
        }
        if (verdict.end == SessionEnd::kWrongFlash ||
            verdict.end == SessionEnd::kFailedWrongFlash || verdict.end == SessionEnd::kRefused) {
            verdict.problem += "; undetected";
        }
        if (attempt.is_updated && DamagesBytes(fault.kind)) {
            verdict.explanation = ExplainOne(fault);
            verdict.problem += verdict.explanation.empty() ? "; no reason for a success" : "";
        }
        // An answer without its end can use up its limit, and then the next request its own.
        auto limit = sound_.requests[request].limit;
        if (request < kRestart) {
            limit += sound_.requests[request + 1].limit;
        }
        if (attempt.wire.time > sound_.wire.time + limit + kMargin) {
            verdict.problem += "; it took longer than the limits allow";
        }
        return verdict;
    }

    SessionVerdict RunWithMany(SessionFaults const& faults) override
    {
        SessionVerdict verdict;
        auto const attempt = Run(faults, verdict);
        if (attempt.wire.time > kMcubootEndless) {
            verdict.problem += "; it took longer than the limits allow";
        }
        if (verdict.end == SessionEnd::kWrongFlash ||
            verdict.end == SessionEnd::kFailedWrongFlash) {
            bool const asks = std::ranges::count(faults.unit, simulator::FaultKind::kAskForOffset,
                                                 &simulator::Fault::kind) > 0;
            verdict.explanation =
                asks ? "undetected: the unit asks for an offset beyond what it was sent" : "";
            verdict.problem += asks ? "" : "; undetected";
        }
        return verdict;
    }

private:
    struct McubootAttempt : Attempt {
        // The request that failed and its outcome; kSuccess after the restart request.
        size_t last_request = 0;
        Outcome outcome = Outcome::kSuccess;
        std::vector<LineRequest> requests;
        QByteArray received;
    };

    // The unit as it is before each session.
    void Restore()
    {
        unit_.GetJournal().Clear();
        unit_.Memory().Load(simulator::kFlashStart, flash_before_);
        ResetUnit();
    }

    // A good unit from now on. What it has not sent by then is lost.
    void ResetUnit()
    {
        unit_.Faults().Clear();
        unit_.TakeUnasked();
        unit_.Reset();
    }

    FlashBytes ReadFlash() const
    {
        return unit_.Memory().Read(simulator::kFlashStart, setup_.unit.chip.flash_size);
    }

    // The whole flash after so many requests. The first chunk erases the pages of the image.
    FlashBytes FlashAfter(size_t requests) const
    {
        auto flash = flash_before_;
        if (requests > kFirstChunk) {
            auto const page = setup_.unit.chip.page_size;
            auto const erased = (kMcubootImageSize + page - 1) / page * page;
            std::fill_n(flash.begin(), erased, std::byte{0xFF});
            auto const size = std::min((requests - kFirstChunk) * kChunk, kMcubootImageSize);
            std::ranges::copy(std::as_bytes(std::span(image_)).first(size), flash.begin());
        }
        return flash;
    }

    // What the backend does from the moment when a unit is found. If the unit prints a banner, from
    // when it has done so: the program asks such a unit again.
    McubootAttempt Try(mcuboot::Exchange& exchange, SessionFaults const& faults)
    {
        VirtualWire wire(unit_, kDefaultMcubootBaud, simulator::kBitsPerByte8N1, faults.wire);
        for (auto const& fault : faults.unit) {
            unit_.Faults().Add(fault);
        }
        if (setup_.unit.talks) {
            wire.Pass(simulator::kTalkLines * simulator::kTalkPause);
        }
        VirtualLine line(wire);
        exchange.Attach(line);
        McubootAttempt attempt;
        Converse(exchange, attempt);
        exchange.Detach();
        attempt.is_running = unit_.Status().state == simulator::UnitState::kRunning;
        attempt.wire = wire.Notes();
        attempt.requests = line.Requests();
        attempt.received = line.Received();
        attempt.flash = ReadFlash();
        return attempt;
    }

    void Converse(mcuboot::Exchange& exchange, McubootAttempt& attempt) const
    {
        attempt.outcome = mcuboot::QueryImageState(exchange).outcome;
        if (attempt.outcome != Outcome::kSuccess) {
            return;
        }
        attempt.last_request = kModelRequest;
        auto const model = mcuboot::QueryOtp(exchange, simulator::kModelIdKey);
        attempt.outcome = model.answer.outcome;
        if (attempt.outcome != Outcome::kSuccess) {
            return;
        }
        attempt.is_refused = static_cast<std::byte>(model.data.front()) != kModel;
        if (attempt.is_refused) {
            return;
        }
        auto const upload = mcuboot::Upload(exchange, image_, {});
        attempt.last_request =
            kFirstChunk + static_cast<size_t>(std::max(upload.offset, 0)) / kChunk;
        attempt.outcome = upload.outcome;
        attempt.is_updated = upload.outcome == Outcome::kSuccess;
        if (attempt.is_updated) {
            attempt.last_request = kRestart;
            mcuboot::Reset(exchange);
        }
    }

    bool HasEnd(FlashBytes const& flash) const override
    {
        constexpr auto kBegin = static_cast<std::ptrdiff_t>((kChunks - 1) * kChunk);
        return std::equal(new_flash_.begin() + kBegin, new_flash_.begin() + kMcubootImageSize,
                          flash.begin() + kBegin);
    }

    McubootAttempt Run(SessionFaults const& faults, SessionVerdict& verdict)
    {
        mcuboot::Exchange exchange;
        Restore();
        auto const attempt = Try(exchange, faults);
        verdict.end = Classify(attempt);
        verdict.trace_hash = attempt.wire.trace_hash;
        verdict.report = fmt::format("request {}, outcome {}", attempt.last_request,
                                     static_cast<int>(attempt.outcome));
        verdict.problem = CheckSecondAttempt(exchange, attempt.requests.size());
        return attempt;
    }

    // The unit is reset and plugged in again, by the same program. Returns what is wrong.
    std::string CheckSecondAttempt(mcuboot::Exchange& exchange, size_t requests)
    {
        ResetUnit();
        auto const [known, is_new] = second_attempts_.try_emplace({ReadFlash(), requests % 256});
        if (is_new && Classify(Try(exchange, {})) != SessionEnd::kUpdated) {
            known->second = "the second attempt";
        }
        return known->second;
    }

    size_t FindRequest(WireFault const& fault) const
    {
        auto const direction = static_cast<size_t>(fault.direction);
        // What comes before the first request meets its answer.
        auto const next = std::find_if(
            sound_.requests.begin() + 1, sound_.requests.end(),
            [&](auto const& request) { return request.begin.at(direction) > fault.position; });
        return static_cast<size_t>(next - sound_.requests.begin()) - 1;
    }

    qsizetype AnswerBegin(size_t request) const
    {
        return static_cast<qsizetype>(sound_.requests[request].begin[1]);
    }

    // What follows this byte of what has come in the answer to a request, itself included.
    QByteArray RestOfAnswer(qsizetype position, size_t request) const
    {
        return sound_.received.mid(position, AnswerBegin(request + 1) - position);
    }

    // An answer's last newline, and the padding in front of it.
    static bool IsPadding(QByteArray const& bytes)
    {
        return std::ranges::all_of(bytes, [](char byte) { return byte == '=' || byte == '\n'; });
    }

    // How a request before the restart ends when its answer ends in front of this byte.
    Outcome PredictCut(qsizetype position, size_t request) const
    {
        if (position <= AnswerBegin(request)) {
            return Outcome::kNoAnswer;
        }
        // An answer that lacks only its last newline, or all of its padding, is still complete. It
        // is only late.
        auto const rest = RestOfAnswer(position, request);
        bool const is_complete =
            IsPadding(rest) && (rest == "\n" || sound_.received.at(position - 1) != '=');
        return is_complete ? Outcome::kSuccess : Outcome::kUnusable;
    }

    struct Prediction {
        size_t last_request;
        Outcome outcome;
        size_t effects;  // how many requests the unit has carried out
    };

    // What a cut or a stall leads to is known exactly.
    std::optional<Prediction> Predict(WireFault const& fault) const
    {
        using enum WireFaultKind;
        if (DamagesBytes(fault.kind)) {
            return std::nullopt;
        }
        Prediction const all{kRestart, Outcome::kSuccess, kRestart + 1};
        auto const request = FindRequest(fault);
        if (fault.direction == Direction::kToUnit) {
            return fault.kind == kStallBelow
                       ? all
                       : Prediction{request, Outcome::kNoAnswer,
                                    fault.kind == kCut ? request : request + 1};
        }
        // Nobody waits for the answer to the restart request.
        if (request == kRestart) {
            return all;
        }
        auto const position = static_cast<qsizetype>(fault.position);
        auto const outcome = PredictCut(position, request);
        if (fault.kind == kStallBelow) {
            // A newline followed by a pause ends an answer, even if another of its lines follows.
            bool const is_line =
                position > AnswerBegin(request) && sound_.received.at(position - 1) == '\n';
            return is_line ? Prediction{request, Outcome::kUnusable, request + 1} : all;
        }
        if (outcome != Outcome::kSuccess) {
            return Prediction{request, outcome, request + 1};
        }
        return fault.kind == kCut ? Prediction{request + 1, Outcome::kNoAnswer, request + 1} : all;
    }

    // Returns what is wrong.
    std::string Check(McubootAttempt const& attempt, Prediction const& expected) const
    {
        auto const outcome =
            expected.last_request == kRestart ? Outcome::kSuccess : expected.outcome;
        if (attempt.last_request != expected.last_request || attempt.outcome != outcome) {
            return fmt::format("expected: request {}, outcome {}", expected.last_request,
                               static_cast<int>(outcome));
        }
        if (attempt.flash != FlashAfter(std::min(expected.effects, kRestart)) ||
            attempt.is_running != (expected.effects > kRestart)) {
            return "not the unit that this fault must leave";
        }
        return {};
    }

    // Why one damaged byte did not make the session fail; empty when there is no good reason.
    std::string ExplainOne(WireFault const& fault) const
    {
        auto const request = FindRequest(fault);
        auto const position = static_cast<qsizetype>(fault.position);
        if (request == kRestart) {
            return "the restart request has no answer that is waited for";
        }
        if (fault.direction == Direction::kToUnit) {
            return fault.value == std::byte{'\n'} ? "an empty line is ignored" : std::string();
        }
        if (position < AnswerBegin(0)) {
            return "what comes before the first request is discarded";
        }
        auto const behind = RestOfAnswer(position + 1, request);
        if (IsPadding(behind)) {
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

    McubootSetup setup_;
    simulator::McubootRecovery unit_;
    QByteArray image_;
    McubootAttempt sound_;  // without faults
    // What is wrong with a second attempt. It depends on the flash that it finds and on the number
    // of its first request alone, so each is run once.
    std::map<std::pair<FlashBytes, size_t>, std::string> second_attempts_;
};

// The markers and ends of lines, and base64.
constexpr std::string_view kMcubootTelling = "\x06\x09\x04\x14\n=A";

}  // namespace

VirtualTransport const& GetVirtualMcuboot()
{
    static VirtualTransport const transport{
        "MCUboot", "virtual-mcuboot", [] { return MakeBenches<McubootBench>(ListMcubootSetups()); },
        simulator::kMcubootFaultKinds, std::as_bytes(std::span(kMcubootTelling))};
    return transport;
}

}  // namespace cuts
