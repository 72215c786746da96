// The serial backends on their threads, over real ports whose lines fail at every byte: every
// update ends in time with the right result, and the unit is updated by the next attempt. Many
// units at once, since they mostly wait.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <utility>

#include "tests/cuts/document_table.h"
#include "tests/cuts/long_run.h"
#include "tests/cuts/serial_client.h"
#include "tests/cuts/serial_run.h"
#include "tests/cuts/side_by_side.h"
#include "tests/support/files.h"
#include "tests/support/process_resources.h"

namespace cuts {
namespace {

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

constexpr size_t kSideBySide = 64;

// A byte of a session that succeeds.
struct SessionByte {
    SerialStep const* step;
    bool to_unit;
    size_t number;      // in its direction, from 0
    size_t from_start;  // before it, of its command's bytes in its direction
    size_t to_end;      // after it
    bool ends_answer;   // the host sends next
};

struct PlannedCut {
    SerialCut cut;
    SessionByte byte;
};

struct CutOutcome {
    PlannedCut planned;
    SerialRun run;
};

// By SerialFault and AttemptResult.
constexpr std::array kFaultNames{"lost from here on", "port gone", "lost", "changed",
                                 "port gone soon after it"};
constexpr std::array kResultNames{"no unit", "refused", "failed", "done"};

char const* GetName(SerialFault fault)
{
    return kFaultNames.at(static_cast<size_t>(fault));
}

// The bytes of a session that succeeds, in their order.
std::vector<SessionByte> RecordSession(SerialTransport const& transport, QString const& folder)
{
    auto const unit = PlaySoundUpdate(transport, folder);
    auto const& journal = unit->Bootloader().GetJournal().Entries();
    auto const& tape = unit->Tape();
    std::vector<SessionByte> session;
    std::array<size_t, 2> bytes{};
    std::map<std::pair<size_t, bool>, size_t> sizes;
    for (auto const& [to_unit, command] : tape) {
        session.push_back({&transport.FindStep(journal.at(command)), to_unit,
                           bytes[to_unit ? 1 : 0]++, sizes[{command, to_unit}]++, 0, false});
    }
    for (size_t i = 0; i < tape.size(); ++i) {
        auto& byte = session[i];
        byte.to_end = sizes[{tape[i].command, byte.to_unit}] - byte.from_start - 1;
        byte.ends_answer = !byte.to_unit && (i + 1 == tape.size() || tape[i + 1].to_unit);
    }
    return session;
}

// ---- What is cut ----

// Those whose result does not depend on a race.
constexpr std::array kTableFaults{SerialFault::kSilence, SerialFault::kHangUp,
                                  SerialFault::kSwallow, SerialFault::kGarble};

constexpr size_t kPayloadStride = 32;
// The virtual line has these faults at every byte.
constexpr size_t kSingleByteStride = 8;
constexpr size_t kSampledCuts = 40;

// The middle of a long request is image; its beginning and its end are frame, header and keys.
bool IsChosen(SessionByte const& byte)
{
    constexpr size_t kHead = 40;
    constexpr size_t kTail = 64;
    bool const is_payload = byte.to_unit && byte.from_start > kHead && byte.to_end > kTail;
    return !is_payload || byte.from_start % kPayloadStride == 0;
}

std::vector<PlannedCut> TakeSample(std::vector<PlannedCut> const& cuts)
{
    std::vector<PlannedCut> sample;
    for (size_t i = 0; i < kSampledCuts; ++i) {
        sample.push_back(cuts[(2 * i + 1) * cuts.size() / (2 * kSampledCuts)]);
    }
    return sample;
}

std::vector<PlannedCut> PlanCuts(std::vector<SessionByte> const& session, bool every_byte)
{
    std::vector<PlannedCut> cuts;
    for (auto const fault : kTableFaults) {
        bool const is_single = fault == SerialFault::kSwallow || fault == SerialFault::kGarble;
        size_t chosen = 0;
        for (auto const& byte : session) {
            if ((every_byte || IsChosen(byte)) &&
                (!is_single || chosen++ % kSingleByteStride == 0)) {
                cuts.push_back({{fault, byte.to_unit, byte.number}, byte});
            }
        }
    }
    return IsLongRun() ? cuts : TakeSample(cuts);
}

// After the last byte of each answer, while the host sends the next command or is about to.
std::vector<PlannedCut> PlanHangUps(std::vector<SessionByte> const& session)
{
    std::vector<PlannedCut> cuts;
    for (auto const delay : {0us, 10us, 20us, 40us, 80us, 160us, 320us}) {
        for (auto const& byte : session) {
            if (byte.ends_answer) {
                cuts.push_back({{SerialFault::kHangUpAfter, false, byte.number, delay}, byte});
            }
        }
    }
    return IsLongRun() ? cuts : TakeSample(cuts);
}

std::string Describe(PlannedCut const& planned)
{
    auto const& [fault, to_unit, number, delay] = planned.cut;
    return planned.byte.step->name + ": byte " + std::to_string(number) +
           (to_unit ? " to the unit, " : " from the unit, ") + GetName(fault) + ", " +
           std::to_string(delay.count()) + " us";
}

// ---- What is expected ----

bool IsLastingFault(SerialFault fault)
{
    return fault == SerialFault::kSilence || fault == SerialFault::kHangUp;
}

// Without its newline or the padding in front of it, an answer over MCUboot's line counts as
// complete when its time is up.
bool CanDoWithout(PlannedCut const& planned, targetInterfaceType type)
{
    constexpr size_t kNewlineAndPadding = 3;
    return type == TargetMcubootSerial && !planned.cut.to_unit &&
           planned.byte.to_end < kNewlineAndPadding;
}

// A fault that passes its own step by is met in a later one, or in none.
void ExpectResult(CutOutcome const& outcome, targetInterfaceType type)
{
    auto const expected = outcome.planned.byte.step->result;
    if (IsLastingFault(outcome.planned.cut.fault) && !CanDoWithout(outcome.planned, type)) {
        EXPECT_EQ(outcome.run.result, expected);
    } else {
        EXPECT_GE(outcome.run.result, expected);
    }
    if (outcome.run.result == AttemptResult::kDone) {
        EXPECT_TRUE(outcome.run.unit_holds_image);
    }
}

std::chrono::milliseconds GetLimit(PlannedCut const& planned, SerialTransport const& transport)
{
    auto const& own = *planned.byte.step;
    auto later = 0ms;
    if (!IsLastingFault(planned.cut.fault) || CanDoWithout(planned, transport.type)) {
        // The same step may have further commands.
        for (auto const* step = &own; step <= &transport.steps.back(); ++step) {
            later = std::max(later, step->limit);
        }
    }
    return own.limit + later + 1s;
}

// As after any other attempt that ends like this.
void ExpectShown(SerialRun const& run)
{
    auto const& shown = run.shown;
    auto const error = u"Error connecting to device \u2014 Disconnect device and repeat step 1-3"_s;
    bool const is_done = run.result == AttemptResult::kDone;
    bool const has_begun = is_done || run.result == AttemptResult::kFailed;
    EXPECT_EQ(shown.button_enabled, false);
    EXPECT_EQ(shown.unit_ready.value_or(false), has_begun);
    EXPECT_EQ(shown.button_text, is_done ? u"DONE"_s : has_begun ? u"UPDATING"_s : u"UPDATE"_s);
    EXPECT_EQ(shown.progress_value == 100, is_done);
    if (run.result == AttemptResult::kNoUnit) {
        EXPECT_EQ(shown.progress_format.value_or(QString()), QString());
    } else if (!is_done) {
        EXPECT_EQ(shown.progress_format, error);
    }
}

// The engine of UART names the command in which the line failed; the backend of MCUboot warns only
// of a model that it could not read.
void ExpectTexts(CutOutcome const& outcome, targetInterfaceType type)
{
    auto const& [planned, run] = outcome;
    if (!IsLastingFault(planned.cut.fault) || run.result != planned.byte.step->result) {
        return;
    }
    auto const& name = planned.byte.step->engine_name;
    if (type == TargetMcubootSerial) {
        EXPECT_EQ(run.texts.size(), run.result == AttemptResult::kRefused ? 1U : 0U);
    } else if (run.result != AttemptResult::kDone) {
        EXPECT_EQ(run.texts.size(), 1U);
    }
    for (auto const& text : run.texts) {
        EXPECT_THAT(text, testing::ContainsRegex(
                              type == TargetMcubootSerial
                                  ? "readOtpData: (no response|parse error)$"
                                  : "receive timeout for [0-9]+ bytes, command " + name + "$"));
    }
}

// How the sessions that failed by `fault` ended, such as "9 failed, 1 done".
std::string CountResults(std::vector<CutOutcome> const& outcomes, SerialFault fault)
{
    std::array<size_t, kResultNames.size()> counts{};
    for (auto const& outcome : outcomes) {
        counts.at(static_cast<size_t>(outcome.run.result)) +=
            outcome.planned.cut.fault == fault ? 1 : 0;
    }
    std::string cell;
    for (size_t i = 0; i < counts.size(); ++i) {
        if (counts[i] > 0) {
            cell += (cell.empty() ? "" : ", ") + std::to_string(counts[i]) + ' ' + kResultNames[i];
        }
    }
    return cell;
}

DocumentTable MakeTable(std::vector<CutOutcome> const& outcomes, SerialTransport const& transport)
{
    std::vector<std::string> header{"Step"};
    std::ranges::transform(kTableFaults, std::back_inserter(header), GetName);
    header.emplace_back("next attempt");
    DocumentTable table{header};
    for (auto const& step : transport.steps) {
        std::vector<CutOutcome> here;
        std::ranges::copy_if(outcomes, std::back_inserter(here), [&](auto const& outcome) {
            return outcome.planned.byte.step == &step &&
                   outcome.planned.cut.fault != SerialFault::kHangUpAfter;
        });
        std::vector<std::string> row{step.name};
        for (auto const fault : kTableFaults) {
            row.push_back(CountResults(here, fault));
        }
        auto const updated = std::ranges::count_if(
            here, [](auto const& outcome) { return outcome.run.problem.empty(); });
        row.push_back(std::to_string(updated) + " of " + std::to_string(here.size()) + " done");
        table.push_back(row);
    }
    return table;
}

std::vector<CutOutcome> PlayCuts(SerialTransport const& transport, QString const& folder)
{
    auto const session = RecordSession(transport, folder);
    auto planned = PlanCuts(session, transport.type == TargetUart);
    std::ranges::copy(PlanHangUps(session), std::back_inserter(planned));
    auto const runs = RunSideBySide<SerialRun>(planned.size(), kSideBySide, [&](size_t number) {
        return PlayCut(transport, folder, u"unit%1"_s.arg(number), planned[number].cut,
                       number % 2 == 0 ? Return::kAfterDisconnect : Return::kUnderAnotherName);
    });
    std::vector<CutOutcome> outcomes;
    for (size_t i = 0; i < planned.size(); ++i) {
        outcomes.push_back({planned[i], runs[i]});
    }
    return outcomes;
}

// What thousands of runs may leave allocated: 600 KiB were measured, whatever their number, which
// Qt and the C library keep for their threads.
constexpr qint64 kMostMemoryKept = qint64{2} << 20;

void ExpectCutsEndWell(SerialTransport const& transport, std::string const& table)
{
    QTemporaryDir const folder;
    WriteFile(folder.filePath(u"image"_s), transport.image);
    auto const resources = GetProcessResources();
    auto const memory = GetAllocatedBytes();
    std::vector<CutOutcome> outcomes;
    {
        ClientTexts const texts;
        outcomes = PlayCuts(transport, folder.path());
    }
    for (auto const& outcome : outcomes) {
        SCOPED_TRACE(Describe(outcome.planned));
        EXPECT_EQ(outcome.run.problem, "");
        ExpectResult(outcome, transport.type);
        EXPECT_LE(outcome.run.time_to_end, GetLimit(outcome.planned, transport));
        ExpectShown(outcome.run);
        ExpectTexts(outcome, transport.type);
    }
    if (IsLongRun()) {
        EXPECT_TRUE(IsInDocument(MakeTable(outcomes, transport), table));
    }
    outcomes = {};
    // The system removes a thread from its list a moment after its end.
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return HoldsNoMore(GetProcessResources(), resources); }, 5000))
        << testing::PrintToString(GetProcessResources()) << ", before "
        << testing::PrintToString(resources);
    EXPECT_LE(GetAllocatedBytes() - memory, kMostMemoryKept);
}

TEST(SerialCuts, OverUartEndEachUpdateInTimeAndTheNextAttemptSucceeds)
{
    ExpectCutsEndWell(GetUartTransport(), "serial-uart");
}

TEST(SerialCuts, OverMcubootEndEachUpdateInTimeAndTheNextAttemptSucceeds)
{
    ExpectCutsEndWell(GetMcubootTransport(), "serial-mcuboot");
}

}  // namespace
}  // namespace cuts
