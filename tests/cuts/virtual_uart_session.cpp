// A UART session in virtual time: the engine updates a simulated unit, step by step as
// uart_script.h has them.
#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "runtime/dispatcher.h"
#include "simulator/line/line_pacer.h"
#include "tests/cuts/quiet_console.h"
#include "tests/cuts/uart_script.h"
#include "tests/cuts/virtual_bench.h"
#include "tests/cuts/virtual_uart.h"
#include "updater/model_id.h"

namespace cuts {
namespace {

using namespace std::chrono_literals;
using stm32_updater::Stm32UartUpdater;
using Step = UartWait::Step;
using Bytes = std::vector<std::byte>;

constexpr uint32_t kStart = simulator::kFlashStart;
constexpr std::array kMarker{std::byte{'P'}, std::byte{'U'}, std::byte{'W'}, std::byte{'F'}};

// No session takes longer, even if every answer is late and every block refused.
constexpr Time kEndless = 10min;

// What the engine prints when it writes without erasing.
constexpr char kNoErase[] = "No erase methods";

// The time for a block that is refused and sent again, and far more.
constexpr Time kRepeats = 100ms;

constexpr char kLostErase[] =
    "undetected: the list of commands has no check value, and lost its erase";

constexpr char kForgedErase[] = "undetected: a refused erase that was acknowledged on the line";

// "\nstm32_uart_updater.cpp:123 text" without the place.
std::string RemovePlace(std::string const& text)
{
    auto const end = text.find(' ');
    bool const has_place = text.starts_with("\nstm32_uart_updater.cpp:") && end != text.npos;
    return has_place ? text.substr(end + 1) : text.substr(text.find_first_not_of('\n'));
}

// The program's engine on its line. What it learns of a unit it keeps as long as the program runs.
struct Engine {
    explicit Engine(bool mass_erase)
        : updater([](bool) {}, [](bool) {}, uart, bus, mutex, stm32_updater::kMcuId, mass_erase,
                  [] {}, [] {}, Stm32UartUpdater::Rate::kBootloader, uart.GetWaits())
    {}

    VirtualUart uart;
    dispatcher::Dispatcher bus{{}, 1};
    std::mutex mutex;
    Stm32UartUpdater updater;
};

class UartBench final : public Bench {
public:
    explicit UartBench(UartSetup const& setup)
        : Bench(setup.name), setup_(setup), script_(setup_), unit_(setup_.unit)
    {
        flash_before_ = script_.FlashBefore();
        new_flash_ = script_.FlashAfter(script_.Waits().size(), flash_before_);
        Engine engine(setup_.mass_erase);
        Restore();
        sound_ = Try(engine, {});
        bytes_ = sound_.wire.bytes;
    }

    std::vector<MatrixFault> ListFaults() const override
    {
        using enum WireFaultKind;
        auto const [ack, nack] = setup_.unit.ack_pair;
        return {
            {"cut", kCut},
            {"swallowed", kSwallow},
            {"one bit flipped", kFlip, OneBit},
            {"acknowledged for refused", kFlip, [=](size_t) { return ack ^ nack; }},
            // Which can make a page list the command to erase everything.
            {"a stray 0xff", kExtraBefore, [](size_t) { return std::byte{0xFF}; }},
            {"an acknowledgement too many", kExtraAfter, [=](size_t) { return ack; }},
            {"stalled just below the limit", kStallBelow},
            {"stalled just above the limit", kStallAbove},
        };
    }

    SessionVerdict RunWithOne(WireFault const& fault) override
    {
        SessionVerdict verdict;
        auto const attempt = Run({{fault}, {}}, verdict);
        verdict.problem += CheckPrediction(attempt, fault);
        verdict.problem += CheckTexts(attempt, script_.Find(fault.direction, fault.position));
        if (attempt.wire.time > sound_.wire.time + 5s + kRepeats) {
            verdict.problem += "; it took longer than the limits allow";
        }
        bool const is_unnoticed =
            attempt.is_updated && attempt.Failures().empty() && DamagesBytes(fault.kind);
        if (is_unnoticed) {
            verdict.explanation = ExplainOne(attempt, fault);
        }
        bool const is_wrong = verdict.end == SessionEnd::kFailedWrongFlash ||
                              (verdict.end == SessionEnd::kWrongFlash && attempt.texts.empty() &&
                               verdict.explanation != kForgedErase);
        if (is_wrong || (is_unnoticed && verdict.explanation.empty())) {
            verdict.problem += "; undetected";
        }
        return verdict;
    }

    SessionVerdict RunWithMany(SessionFaults const& faults) override
    {
        SessionVerdict verdict;
        auto const attempt = Run(faults, verdict);
        verdict.problem += CheckTexts(attempt, 0);
        if (attempt.wire.time > kEndless) {
            verdict.problem += "; it took longer than the limits allow";
        }
        if (verdict.end == SessionEnd::kWrongFlash ||
            verdict.end == SessionEnd::kFailedWrongFlash) {
            verdict.explanation = ExplainMany(attempt, faults);
            verdict.problem += verdict.explanation.empty() ? "; undetected" : "";
        }
        return verdict;
    }

private:
    struct UartAttempt : Attempt {
        Step step = Step::kConnect;      // where it ended
        std::vector<std::string> texts;  // without the place in the source

        std::vector<std::string> Failures() const
        {
            auto failures = texts;
            std::erase(failures, kNoErase);
            return failures;
        }
    };

    // The unit as it is before each session.
    void Restore()
    {
        unit_.GetJournal().Clear();
        EraseUnit();
        unit_.Memory().Load(kStart, flash_before_);
        ResetUnit();
    }

    void EraseUnit() { unit_.Memory().EraseFlash(0, setup_.unit.chip.flash_size); }

    // A good unit from now on, which nobody has marked for a start in the bootloader.
    void ResetUnit()
    {
        unit_.Faults().Clear();
        unit_.Memory().Load(kUartMarkerAddress, Bytes(kMarker.size(), std::byte{0}));
        unit_.Reset();
    }

    Bytes ReadFlash() const { return unit_.Memory().Read(kStart, setup_.unit.chip.flash_size); }

    // What the backend does from the moment when a unit is found.
    UartAttempt Try(Engine& engine, SessionFaults const& faults)
    {
        VirtualWire wire(unit_, stm32_updater::kBaudRate, simulator::kBitsPerByte8E1, faults.wire);
        for (auto const& fault : faults.unit) {
            unit_.Faults().Add(fault);
        }
        engine.uart.Attach(wire);
        UartAttempt attempt;
        attempt.step = Converse(engine.updater);
        std::ranges::transform(QuietConsole::TakeTexts(), std::back_inserter(attempt.texts),
                               RemovePlace);
        attempt.is_refused = attempt.step == Step::kOtp && attempt.texts.empty();
        attempt.is_updated = attempt.step == Step::kRestart;
        attempt.is_running = unit_.GetState() == simulator::UnitState::kRunning &&
                             unit_.JumpAddress() == kStart &&
                             std::ranges::equal(unit_.Marker(), kMarker);
        attempt.wire = wire.Notes();
        attempt.flash = ReadFlash();
        return attempt;
    }

    // Returns the step at which it ended.
    Step Converse(Stm32UartUpdater& updater) const
    {
        if (!updater.ConnectDevice()) {
            return Step::kConnect;
        }
        auto const otp = updater.GetOtp(setup_.unit.chip.otp_address, kUartOtpSize);
        if (!checkModelIdInOtp(otp, {kUartModel})) {
            return Step::kOtp;
        }
        auto const ignore_progress = [](IFwUpdater::State, unsigned) {};
        bool const is_updated = updater.Update(script_.Image(), ignore_progress, kStart);
        updater.DisconnectDevice();
        if (!is_updated) {
            return Step::kUpdate;
        }
        updater.ExitDfu(kStart, kUartMarkerAddress);
        return Step::kRestart;
    }

    bool HasEnd(Bytes const& flash) const override { return UartScript::HasTrailer(flash); }

    UartAttempt Run(SessionFaults const& faults, SessionVerdict& verdict)
    {
        Engine engine(setup_.mass_erase);
        Restore();
        auto const attempt = Try(engine, faults);
        verdict.end = Classify(attempt);
        verdict.report = fmt::format("{}", fmt::join(attempt.texts, "; "));
        verdict.trace_hash = attempt.wire.trace_hash;
        verdict.problem = CheckSecondAttempt(engine);
        return attempt;
    }

    // The whole flash after a session without faults that found it so.
    Bytes SoundFlash(Bytes const& found) const
    {
        return script_.RefusesErase() ? found : script_.FlashAfter(script_.Waits().size(), found);
    }

    // ---- Each check returns what is wrong, and nothing when all is right ----

    // The unit is reset and plugged in again, by the same program.
    std::string CheckSecondAttempt(Engine& engine)
    {
        ResetUnit();
        if (flash_before_.front() == std::byte{0xFF}) {
            EraseUnit();  // without an erase command the unit erases by itself
        }
        // What the first attempt has lost outside of the image stays lost.
        auto const expected = SoundFlash(ReadFlash());
        if (!HasLearnedWrongPair(engine.uart)) {
            return CheckSound(Try(engine, {}), expected);
        }
        // The pair is kept as long as the program runs; see docs/known-limits.md.
        if (Try(engine, {}).step > Step::kConnect) {
            return "a session with the other pair of answers";
        }
        unit_.Reset();
        Engine other_engine(setup_.mass_erase);
        return CheckSound(Try(other_engine, {}), expected);
    }

    bool HasLearnedWrongPair(VirtualUart const& uart) const
    {
        auto const first = uart.FirstReceived();
        return first != setup_.unit.ack_pair.ack && (first == simulator::kStandardAckPair.ack ||
                                                     first == simulator::kAlternativeAckPair.ack);
    }

    std::string CheckSound(UartAttempt const& attempt, Bytes const& flash) const
    {
        bool const is_good = !script_.RefusesErase();
        if (attempt.is_updated == is_good && attempt.is_running == is_good &&
            attempt.flash == flash && attempt.texts == sound_.texts) {
            return {};
        }
        auto const differs = std::ranges::mismatch(attempt.flash, flash).in1;
        return fmt::format("not like a session without faults: {}; flash differs at 0x{:x}; {}",
                           kSessionEnds.at(static_cast<size_t>(Classify(attempt))),
                           differs - attempt.flash.begin(), fmt::join(attempt.texts, "; "));
    }

    // One text for each failure, of a command that may be under way at this wait or later.
    std::string CheckTexts(UartAttempt const& attempt, size_t first_wait) const
    {
        auto const texts = attempt.Failures();
        if (texts.empty()) {
            // A model that does not fit is a failure without a text, and so is a restart that is
            // not seen.
            bool const may_be_silent = attempt.step == Step::kOtp || attempt.is_updated;
            return may_be_silent ? "" : "no text";
        }
        if (texts.size() > 1) {
            return "more than one text";
        }
        auto const command = FindCommand(texts.front());
        // A damaged list can name a command that the unit does not have.
        if (attempt.step == Step::kUpdate && command && command->starts_with("Erase")) {
            return {};
        }
        auto const from = script_.Waits().begin() + static_cast<std::ptrdiff_t>(first_wait);
        bool const fits = std::any_of(from, script_.Waits().end(), [&](UartWait const& wait) {
            return wait.step == attempt.step && wait.command == command;
        });
        return fits ? "" : "not the text of a command under way";
    }

    // What a cut, a stall or a damaged block leads to is known exactly.
    std::string CheckPrediction(UartAttempt const& attempt, WireFault const& fault) const
    {
        auto const wait = script_.Find(fault.direction, fault.position);
        auto const& awaited = script_.Waits()[wait];
        auto const below = fault.kind == WireFaultKind::kStallBelow ? 1us : 0us;
        if (!DamagesBytes(fault.kind) && awaited.to_host > 0 &&
            attempt.wire.longest_wait != awaited.limit - below) {
            return "the limit is another one";
        }
        bool const has_request = fault.direction == Direction::kToHost;
        switch (fault.kind) {
            case WireFaultKind::kCut:
                return CheckFailsAt(attempt, wait, has_request ? wait + 1 : wait);
            case WireFaultKind::kStallAbove:
                return CheckFailsAt(attempt, wait, wait + 1);
            case WireFaultKind::kStallBelow:
                return CheckSound(attempt, SoundFlash(flash_before_));
            case WireFaultKind::kFlip: {
                // The check value shows it, and the block is sent again. A wrong count, the first
                // byte, moves the check value.
                bool const is_in_block = !has_request &&
                                         awaited.effect == UartWait::Effect::kWrite &&
                                         script_.Find(fault.direction, fault.position - 1) == wait;
                return is_in_block ? CheckSound(attempt, new_flash_) : std::string();
            }
            default:
                return {};
        }
    }

    // `effects`: how many waits have had their effect on the unit.
    std::string CheckFailsAt(UartAttempt const& attempt, size_t wait, size_t effects) const
    {
        auto const& awaited = script_.Waits()[wait];
        auto texts = sound_.texts;
        if (awaited.command != "Write") {
            texts.clear();  // it has not come to the erase
        }
        if (awaited.to_host > 0) {
            texts.push_back(fmt::format("receive timeout for {} bytes, command {}", awaited.to_host,
                                        awaited.command));
        }
        if (attempt.flash != script_.FlashAfter(effects, flash_before_)) {
            return "not the flash that this fault must leave";
        }
        if (attempt.step != awaited.step) {
            return "not the step that this fault must end";
        }
        if (attempt.texts != texts) {
            return "expected: " + fmt::format("{}", fmt::join(texts, "; "));
        }
        return {};
    }

    // ---- Why damaged bytes did not make the session fail; empty when there is no good reason ----

    std::string ExplainOne(UartAttempt const& attempt, WireFault const& fault) const
    {
        auto const& wait = script_.Waits()[script_.Find(fault.direction, fault.position)];
        bool const is_extra =
            fault.kind == WireFaultKind::kExtraBefore || fault.kind == WireFaultKind::kExtraAfter;
        bool const is_to_host = fault.direction == Direction::kToHost;
        if (wait.step == Step::kRestart) {
            return "the answer to the jump is not waited for";
        }
        if (is_to_host && is_extra) {
            return "an acknowledgement too many counts as the next one";
        }
        if (is_to_host && wait.to_host > 1) {
            return attempt.flash == new_flash_ ? "undetected: an answer without a check value, and "
                                                 "a byte of no importance"
                                               : kLostErase;
        }
        if (wait.command == "Erase" && is_to_host && script_.RefusesErase()) {
            return kForgedErase;
        }
        if (wait.command == "Write" && !is_to_host) {
            return "refused, and sent again";
        }
        if (wait.command == "Write" && attempt.wire.forged == Bytes{setup_.unit.ack_pair.nack}) {
            return "refused by mistake, and written again";
        }
        return wait.command == "Init con" && is_extra
                   ? "noise in front of the first byte is ignored"
                   : std::string();
    }

    // Of a wrong flash that looks complete.
    std::string ExplainMany(UartAttempt const& attempt, SessionFaults const& faults) const
    {
        using enum simulator::FaultKind;
        auto const is_answer = [&](std::byte byte) {
            return byte == setup_.unit.ack_pair.ack || byte == setup_.unit.ack_pair.nack;
        };
        auto const is_forged = [&](simulator::Fault const& fault) {
            return (fault.kind == kGarbageAnswer || fault.kind == kExtraByte) &&
                   is_answer(static_cast<std::byte>(fault.parameter & 0xFF));
        };
        auto const moves_bytes = [](WireFault const& fault) {
            return DamagesBytes(fault.kind) && fault.kind != WireFaultKind::kFlip &&
                   fault.kind != WireFaultKind::kReplace;
        };
        auto const page = setup_.unit.chip.page_size;
        if (attempt.Failures() != attempt.texts) {
            return kLostErase;
        }
        if (std::ranges::equal(std::span(attempt.flash).first(page),
                               std::span(new_flash_).first(page))) {
            return "undetected: damaged bytes that erase more than the image's pages";
        }
        if (std::ranges::any_of(attempt.wire.forged, is_answer) ||
            std::ranges::any_of(faults.unit, is_forged)) {
            return "undetected: an answer that the unit did not send, and a damaged block";
        }
        if (attempt.wire.most_faults_together > 1) {
            return "undetected: damaged bytes of a block whose check value is right";
        }
        if (std::ranges::count_if(faults.wire, moves_bytes) > 1) {
            return "undetected: bytes too many or too few, so that answers belong to other "
                   "requests";
        }
        return {};
    }

    UartSetup setup_;
    UartScript script_;
    simulator::Stm32Bootloader unit_;
    UartAttempt sound_;  // without faults
};

// Both pairs of answers, the first byte, and what a list of commands or pages may contain.
constexpr std::array<uint8_t, 9> kUartTelling{0x79, 0x1F, 0x75, 0x3F, 0x7F, 0x00, 0xFF, 0x31, 0x44};

}  // namespace

VirtualTransport const& GetVirtualUart()
{
    static VirtualTransport const transport{
        "UART", "virtual-uart", [] { return MakeBenches<UartBench>(ListUartSetups()); },
        simulator::kStm32FaultKinds, std::as_bytes(std::span(kUartTelling))};
    return transport;
}

}  // namespace cuts
