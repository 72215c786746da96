#include "tests/cuts/virtual_uart_session.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "simulator/line/line_pacer.h"
#include "tests/cuts/quiet_console.h"
#include "updater/model_id.h"

namespace cuts {
namespace {

using namespace std::chrono_literals;
using stm32_updater::Stm32UartUpdater;
using Step = UartWait::Step;

constexpr uint32_t kStart = simulator::kFlashStart;
constexpr std::array kMarker{std::byte{'P'}, std::byte{'U'}, std::byte{'W'}, std::byte{'F'}};

// No session takes longer, even if every answer is late and every block refused.
constexpr Time kEndless = 10min;

// What the engine prints when it writes without erasing.
constexpr char kNoErase[] = "No erase methods";

// The time for a block that is refused and sent again, and far more.
constexpr Time kRepeats = 100ms;

// "\nstm32_uart_updater.cpp:123 text" without the place.
std::string RemovePlace(std::string const& text)
{
    auto const end = text.find(' ');
    bool const has_place = text.starts_with("\nstm32_uart_updater.cpp:") && end != text.npos;
    return has_place ? text.substr(end + 1) : text.substr(text.find_first_not_of('\n'));
}

Stm32UartUpdater MakeEngine(VirtualUart& uart, dispatcher::Dispatcher& dispatcher,
                            std::mutex& mutex, bool mass_erase)
{
    return {
        [](bool) {},           [](bool) {}, uart,  dispatcher, mutex,
        stm32_updater::kMcuId, mass_erase,  [] {}, [] {},      Stm32UartUpdater::Rate::kBootloader,
        uart.GetWaits()};
}

}  // namespace

UartBench::UartBench(UartSetup setup)
    : setup_(std::move(setup)),
      script_(setup_),
      unit_(setup_.unit),
      new_flash_(script_.FlashAfter(script_.Waits().size(), script_.FlashBefore()))
{
    VirtualUart uart;
    auto engine = MakeEngine(uart, dispatcher_, mutex_, setup_.mass_erase);
    Restore();
    sound_ = Try(engine, uart, {});
}

// The unit as it is before each session.
void UartBench::Restore()
{
    unit_.Faults().Clear();
    unit_.GetJournal().Clear();
    unit_.Memory().EraseFlash(0, setup_.unit.chip.flash_size);
    unit_.Memory().Load(kStart, script_.FlashBefore());
    unit_.Memory().Load(kUartMarkerAddress, std::vector(kMarker.size(), std::byte{0}));
    unit_.Reset();
}

// What the backend does from the moment when a unit is found.
UartAttempt UartBench::Try(Stm32UartUpdater& engine, VirtualUart& uart, SessionFaults const& faults)
{
    VirtualWire wire(unit_, stm32_updater::kBaudRate, simulator::kBitsPerByte8E1, faults.wire);
    for (auto const& fault : faults.unit) {
        unit_.Faults().Add(fault);
    }
    uart.Attach(wire);
    UartAttempt attempt;
    attempt.is_connected = engine.ConnectDevice();
    attempt.is_verified =
        attempt.is_connected &&
        checkModelIdInOtp(engine.GetOtp(setup_.unit.chip.otp_address, kUartOtpSize), {kUartModel});
    if (attempt.is_verified) {
        auto const ignore_progress = [](IFwUpdater::State, unsigned) {};
        attempt.is_updated = engine.Update(MakeUartImage(), ignore_progress, kStart);
        engine.DisconnectDevice();
    }
    if (attempt.is_updated) {
        engine.ExitDfu(kStart, kUartMarkerAddress);
    }
    std::ranges::transform(QuietConsole::TakeTexts(), std::back_inserter(attempt.texts),
                           RemovePlace);
    attempt.time = wire.Now();
    attempt.longest_wait = wire.LongestWait();
    attempt.bytes = {wire.SentToUnit(), wire.SentToHost()};
    attempt.trace_hash = wire.TraceHash();
    attempt.forged = wire.Forged();
    attempt.most_faults_together = wire.MostFaultsTogether();
    attempt.flash = unit_.Memory().Read(kStart, setup_.unit.chip.flash_size);
    attempt.is_running = unit_.GetState() == simulator::UnitState::kRunning &&
                         unit_.JumpAddress() == kStart &&
                         std::ranges::equal(unit_.Marker(), kMarker);
    return attempt;
}

SessionEnd UartBench::Classify(UartAttempt const& attempt) const
{
    bool const is_complete = attempt.flash == new_flash_;
    bool const is_untouched = attempt.flash == script_.FlashBefore();
    if (attempt.is_updated) {
        return !is_complete         ? SessionEnd::kWrongFlash
               : attempt.is_running ? SessionEnd::kUpdated
                                    : SessionEnd::kNotRestarted;
    }
    if (is_untouched) {
        bool const is_refused =
            attempt.is_connected && !attempt.is_verified && attempt.texts.empty();
        return is_refused ? SessionEnd::kRefused : SessionEnd::kFailedUntouched;
    }
    return is_complete                             ? SessionEnd::kFailedComplete
           : UartScript::HasTrailer(attempt.flash) ? SessionEnd::kFailedWrongFlash
                                                   : SessionEnd::kFailedIncomplete;
}

UartAttempt UartBench::Run(SessionFaults const& faults, SessionVerdict& verdict)
{
    VirtualUart uart;
    auto engine = MakeEngine(uart, dispatcher_, mutex_, setup_.mass_erase);
    Restore();
    auto const attempt = Try(engine, uart, faults);
    verdict.end = Classify(attempt);
    verdict.report = fmt::format("{}", fmt::join(attempt.texts, "; "));
    verdict.trace_hash = attempt.trace_hash;
    verdict.problem = CheckSecondAttempt(engine, uart);
    return attempt;
}

// The unit is reset and plugged in again, by the same program.
std::string UartBench::CheckSecondAttempt(Stm32UartUpdater& engine, VirtualUart& uart)
{
    unit_.Faults().Clear();
    unit_.Reset();
    unit_.Memory().Load(kUartMarkerAddress, std::vector(kMarker.size(), std::byte{0}));
    if (script_.FlashBefore().front() == std::byte{0xFF}) {
        // Without an erase command the unit erases by itself.
        unit_.Memory().EraseFlash(0, setup_.unit.chip.flash_size);
    }
    // What the first attempt has lost outside of the image stays lost.
    auto const expected = script_.FlashAfter(
        script_.Waits().size(), unit_.Memory().Read(kStart, setup_.unit.chip.flash_size));
    if (!HasLearnedWrongPair(uart)) {
        return CheckUpdated(Try(engine, uart, {}), expected);
    }
    // The pair is kept as long as the program runs; see docs/known-limits.md.
    if (Try(engine, uart, {}).is_connected) {
        return "a session with the other pair of answers";
    }
    unit_.Reset();
    VirtualUart other_uart;
    auto other_engine = MakeEngine(other_uart, dispatcher_, mutex_, setup_.mass_erase);
    return CheckUpdated(Try(other_engine, other_uart, {}), expected);
}

bool UartBench::HasLearnedWrongPair(VirtualUart const& uart) const
{
    auto const first = uart.FirstReceived();
    return first != setup_.unit.ack_pair.ack && (first == simulator::kStandardAckPair.ack ||
                                                 first == simulator::kAlternativeAckPair.ack);
}

std::string UartBench::CheckUpdated(UartAttempt const& attempt,
                                    std::vector<std::byte> const& flash) const
{
    if (attempt.is_updated && attempt.is_running && attempt.flash == flash &&
        attempt.texts == sound_.texts) {
        return {};
    }
    auto const differs = std::ranges::mismatch(attempt.flash, flash).in1;
    return fmt::format("not updated: {}; flash differs at 0x{:x}; {}",
                       kSessionEnds.at(static_cast<size_t>(Classify(attempt))),
                       differs - attempt.flash.begin(), fmt::join(attempt.texts, "; "));
}

// One text for each failure, of a command that may be under way at this wait or later.
std::string UartBench::CheckTexts(UartAttempt const& attempt, size_t first_wait) const
{
    auto texts = attempt.texts;
    std::erase(texts, kNoErase);
    auto const& waits = script_.Waits();
    auto const step = !attempt.is_connected  ? Step::kConnect
                      : !attempt.is_verified ? Step::kOtp
                      : !attempt.is_updated  ? Step::kUpdate
                                             : Step::kRestart;
    // A model that does not fit is a failure without a text, and so is a restart that is not seen.
    bool const may_be_silent = step == Step::kOtp || step == Step::kRestart;
    if (texts.size() > 1 || (texts.empty() && !may_be_silent)) {
        return "the number of texts";
    }
    if (texts.empty()) {
        return {};
    }
    auto const command = FindCommand(texts.front());
    auto const fits = [&](UartWait const& wait) {
        return wait.step == step && wait.command == command;
    };
    // A damaged list can name a command that the unit does not have.
    if (step == Step::kUpdate && command && command->starts_with("Erase")) {
        return {};
    }
    auto const from = waits.begin() + static_cast<std::ptrdiff_t>(first_wait);
    return std::any_of(from, waits.end(), fits) ? "" : "not the text of a command under way";
}

// What a cut or a stall leads to is known exactly.
std::string UartBench::CheckPrediction(UartAttempt const& attempt, WireFault const& fault) const
{
    auto const wait = script_.Find(fault.direction, fault.position);
    auto const& awaited = script_.Waits()[wait];
    auto const below = fault.kind == WireFaultKind::kStallBelow ? 1us : 0us;
    if (!DamagesBytes(fault.kind) && awaited.to_host > 0 &&
        attempt.longest_wait != awaited.limit - below) {
        return "the limit is another one";
    }
    bool const has_request = fault.direction == Direction::kToHost;
    switch (fault.kind) {
        case WireFaultKind::kCut:
            return CheckFailsAt(attempt, wait, has_request ? wait + 1 : wait);
        case WireFaultKind::kStallAbove:
            return CheckFailsAt(attempt, wait, wait + 1);
        case WireFaultKind::kStallBelow:
            return CheckUpdated(attempt, new_flash_);
        default:
            return {};
    }
}

// `effects`: how many waits have had their effect on the unit.
std::string UartBench::CheckFailsAt(UartAttempt const& attempt, size_t wait, size_t effects) const
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
    if (attempt.flash != script_.FlashAfter(effects, script_.FlashBefore())) {
        return "not the flash that this fault must leave";
    }
    if (attempt.is_connected != (awaited.step > Step::kConnect) ||
        attempt.is_verified != (awaited.step > Step::kOtp) ||
        attempt.is_updated != (awaited.step > Step::kUpdate)) {
        return "not the step that this fault must end";
    }
    if (attempt.texts != texts) {
        return "expected: " + fmt::format("{}", fmt::join(texts, "; "));
    }
    return {};
}

// Why one damaged byte did not make the session fail.
std::string UartBench::ExplainOne(UartAttempt const& attempt, WireFault const& fault) const
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
        return attempt.flash == new_flash_
                   ? "undetected: an answer without a check value, and a byte of no importance"
                   : "undetected: the list of commands has no check value, and lost its erase";
    }
    if (wait.command == "Write") {
        return is_to_host ? "refused by mistake, and written again" : "refused, and sent again";
    }
    return wait.command == "Init con" && is_extra ? "noise in front of the first byte is ignored"
                                                  : std::string();
}

SessionVerdict UartBench::RunWithOne(WireFault const& fault)
{
    SessionVerdict verdict;
    auto const attempt = Run({{fault}, {}}, verdict);
    verdict.problem += CheckPrediction(attempt, fault);
    verdict.problem += CheckTexts(attempt, script_.Find(fault.direction, fault.position));
    if (attempt.time > sound_.time + 5s + kRepeats) {
        verdict.problem += "; it took longer than the limits allow";
    }
    auto texts = attempt.texts;
    std::erase(texts, kNoErase);
    if (attempt.is_updated && texts.empty() && DamagesBytes(fault.kind)) {
        verdict.explanation = ExplainOne(attempt, fault);
    }
    bool const is_wrong = verdict.end == SessionEnd::kFailedWrongFlash ||
                          (verdict.end == SessionEnd::kWrongFlash && attempt.texts.empty());
    if (is_wrong || (attempt.is_updated && texts.empty() && DamagesBytes(fault.kind) &&
                     verdict.explanation.empty())) {
        verdict.problem += "; undetected";
    }
    return verdict;
}

// Why several damaged bytes left a wrong flash that looks complete.
std::string UartBench::ExplainMany(UartAttempt const& attempt, SessionFaults const& faults) const
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
    if (std::ranges::find(attempt.texts, kNoErase) != attempt.texts.end()) {
        return "undetected: the list of commands has no check value, and lost its erase";
    }
    if (std::ranges::equal(std::span(attempt.flash).first(setup_.unit.chip.page_size),
                           std::span(new_flash_).first(setup_.unit.chip.page_size))) {
        return "undetected: damaged bytes that erase more than the image's pages";
    }
    if (std::ranges::any_of(attempt.forged, is_answer) ||
        std::ranges::any_of(faults.unit, is_forged)) {
        return "undetected: an answer that the unit did not send, and a damaged block";
    }
    if (attempt.most_faults_together > 1) {
        return "undetected: damaged bytes of a block whose check value is right";
    }
    if (std::ranges::count_if(faults.wire, moves_bytes) > 1) {
        return "undetected: bytes too many or too few, so that answers belong to other requests";
    }
    return {};
}

SessionVerdict UartBench::RunWithMany(SessionFaults const& faults)
{
    SessionVerdict verdict;
    auto const attempt = Run(faults, verdict);
    verdict.problem += CheckTexts(attempt, 0);
    if (attempt.time > kEndless) {
        verdict.problem += "; it took longer than the limits allow";
    }
    if (verdict.end == SessionEnd::kWrongFlash || verdict.end == SessionEnd::kFailedWrongFlash) {
        verdict.explanation = ExplainMany(attempt, faults);
        verdict.problem += verdict.explanation.empty() ? "; undetected" : "";
    }
    return verdict;
}

}  // namespace cuts
