// The serial backends on their threads, over real ports whose lines fail at every byte: every
// update ends in time with the right result, and the unit is updated by the next attempt. Many
// units at once, since they mostly wait.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <ranges>
#include <utility>

#include "tests/cuts/document_table.h"
#include "tests/cuts/long_run.h"
#include "tests/cuts/serial_run.h"
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
    AttemptReport first;
    std::string problem;
};

char const* GetName(SerialFault fault)
{
    switch (fault) {
        case SerialFault::kSilence:
            return "lost from here on";
        case SerialFault::kHangUp:
            return "port gone";
        case SerialFault::kSwallow:
            return "lost";
        case SerialFault::kGarble:
            return "changed";
        case SerialFault::kHangUpAfter:
            return "port gone soon after it";
    }
    return "";
}

char const* GetName(AttemptResult result)
{
    switch (result) {
        case AttemptResult::kNoUnit:
            return "no unit";
        case AttemptResult::kRefused:
            return "refused";
        case AttemptResult::kFailed:
            return "failed";
        case AttemptResult::kDone:
            return "done";
    }
    return "";
}

// One transport's session, cut by cut.
class SerialCutsOf {
public:
    explicit SerialCutsOf(SerialTransport const& transport) : transport_(transport)
    {
        WriteFile(folder_.filePath(u"image"_s), transport.image);
        RecordSession();
    }

    std::vector<SessionByte> const& Session() const { return session_; }
    std::vector<SerialStep> const& Steps() const { return steps_; }

    std::vector<CutOutcome> Run(std::vector<PlannedCut> const& cuts)
    {
        ClientTexts const texts;
        std::vector<CutOutcome> outcomes(cuts.size());
        size_t next = 0;
        size_t running = 0;
        QEventLoop loop;
        std::function<void()> const start = [&] {
            for (; running < kSideBySide && next < cuts.size(); ++next, ++running) {
                auto const number = next;
                auto* const run = MakeRun(number, cuts[number].cut);
                run->Start([&, run, number] {
                    QMetaObject::invokeMethod(
                        run,
                        [&, run, number] {
                            outcomes[number] = {cuts[number], run->FirstAttempt(), run->Problem()};
                            // The worker of a stuck one would be waited for.
                            if (!run->IsStuck()) {
                                run->deleteLater();
                            }
                            --running;
                            start();
                            if (running == 0) {
                                loop.quit();
                            }
                        },
                        Qt::QueuedConnection);
                });
            }
        };
        start();
        loop.exec();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return outcomes;
    }

private:
    SerialRun* MakeRun(size_t number, std::optional<SerialCut> cut)
    {
        auto const comes_back =
            number % 2 == 0 ? Return::kAfterDisconnect : Return::kUnderAnotherName;
        return new SerialRun(transport_, folder_.path(), u"unit%1"_s.arg(number), cut, comes_back);
    }

    void RecordSession()
    {
        std::unique_ptr<SerialRun> const run(MakeRun(0, std::nullopt));
        {
            ClientTexts const texts;
            QEventLoop loop;
            run->Start([&] { loop.quit(); });
            loop.exec();
        }
        EXPECT_EQ(run->Problem(), "");
        auto const& journal = run->Unit().Bootloader().GetJournal().Entries();
        for (auto const& entry : journal) {
            auto const step = transport_.get_step(entry);
            if (steps_.empty() || steps_.back().name != step.name) {
                steps_.push_back(step);
            }
        }
        size_t bytes[2] = {0, 0};
        std::map<std::pair<size_t, bool>, size_t> sizes;
        auto const& tape = run->Unit().Tape();
        for (auto const& [to_unit, command] : tape) {
            auto const name = transport_.get_step(journal.at(command)).name;
            auto const step = std::ranges::find(steps_, name, &SerialStep::name);
            session_.push_back(
                {&*step, to_unit, bytes[to_unit]++, sizes[{command, to_unit}]++, 0, false});
        }
        for (size_t i = 0; i < tape.size(); ++i) {
            session_[i].to_end =
                sizes[{tape[i].command, tape[i].to_unit}] - session_[i].from_start - 1;
            session_[i].ends_answer =
                !tape[i].to_unit && (i + 1 == tape.size() || tape[i + 1].to_unit);
        }
    }

    SerialTransport const& transport_;
    QTemporaryDir folder_;
    std::vector<SerialStep> steps_;
    std::vector<SessionByte> session_;
};

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
        EXPECT_EQ(outcome.first.result, expected);
    } else {
        EXPECT_GE(outcome.first.result, expected);
    }
    if (outcome.first.result == AttemptResult::kDone) {
        EXPECT_TRUE(outcome.first.unit_holds_image);
    }
}

std::chrono::milliseconds GetLimit(PlannedCut const& planned, targetInterfaceType type,
                                   std::vector<SerialStep> const& steps)
{
    auto const& own = *planned.byte.step;
    auto limit = own.limit + 1s;
    if (!IsLastingFault(planned.cut.fault) || CanDoWithout(planned, type)) {
        auto later = 0ms;
        // The same step may have further commands.
        for (auto const& step : steps | std::views::drop(&own - steps.data())) {
            later = std::max(later, step.limit);
        }
        limit += later;
    }
    return limit;
}

// As after any other attempt that ends like this.
void ExpectShown(AttemptReport const& first)
{
    auto const& shown = first.shown;
    auto const error = u"Error connecting to device \u2014 Disconnect device and repeat step 1-3"_s;
    bool const is_done = first.result == AttemptResult::kDone;
    bool const has_begun = is_done || first.result == AttemptResult::kFailed;
    EXPECT_FALSE(shown.button_enabled);
    EXPECT_EQ(shown.unit_ready, has_begun);
    EXPECT_EQ(shown.button_text, is_done ? u"DONE"_s : has_begun ? u"UPDATING"_s : u"UPDATE"_s);
    EXPECT_EQ(shown.progress_value == 100, is_done);
    if (first.result == AttemptResult::kNoUnit) {
        EXPECT_EQ(shown.progress_format, QString());
    } else if (!is_done) {
        EXPECT_EQ(shown.progress_format, error);
    }
}

// The engine of UART names the command in which the line failed; the backend of MCUboot warns only
// of a model that it could not read.
void ExpectTexts(CutOutcome const& outcome, targetInterfaceType type)
{
    auto const& [planned, first, problem] = outcome;
    if (!IsLastingFault(planned.cut.fault) || first.result != planned.byte.step->result) {
        return;
    }
    auto const& name = planned.byte.step->engine_name;
    if (type == TargetMcubootSerial) {
        EXPECT_EQ(first.texts.size(), first.result == AttemptResult::kRefused ? 1U : 0U);
    } else if (first.result != AttemptResult::kDone) {
        EXPECT_EQ(first.texts.size(), 1U);
    }
    for (auto const& text : first.texts) {
        EXPECT_THAT(text, testing::ContainsRegex(
                              type == TargetMcubootSerial
                                  ? "readOtpData: (no response|parse error)$"
                                  : "receive timeout for [0-9]+ bytes, command " + name + "$"));
    }
}

// How the sessions that failed by `fault` ended, such as "9 failed, 1 done".
std::string CountResults(std::vector<CutOutcome> const& outcomes, SerialFault fault)
{
    std::string cell;
    for (auto const result : {AttemptResult::kNoUnit, AttemptResult::kRefused,
                              AttemptResult::kFailed, AttemptResult::kDone}) {
        auto const count = std::ranges::count_if(outcomes, [&](auto const& outcome) {
            return outcome.planned.cut.fault == fault && outcome.first.result == result;
        });
        if (count > 0) {
            cell += (cell.empty() ? "" : ", ") + std::to_string(count) + ' ' + GetName(result);
        }
    }
    return cell;
}

DocumentTable MakeTable(std::vector<CutOutcome> const& outcomes,
                        std::vector<SerialStep> const& steps)
{
    std::vector<std::string> header{"Step"};
    for (auto const fault : kTableFaults) {
        header.emplace_back(GetName(fault));
    }
    header.emplace_back("next attempt");
    DocumentTable table(header);
    for (auto const& step : steps) {
        std::vector<CutOutcome> here;
        std::ranges::copy_if(outcomes, std::back_inserter(here), [&](auto const& outcome) {
            return outcome.planned.byte.step == &step;
        });
        std::vector<std::string> row{step.name};
        for (auto const fault : kTableFaults) {
            row.push_back(CountResults(here, fault));
        }
        auto const updated = std::ranges::count(here, std::string(), &CutOutcome::problem);
        row.push_back(std::to_string(updated) + " of " + std::to_string(here.size()) + " done");
        table.Add(row);
    }
    return table;
}

// What thousands of runs may leave allocated: 600 KiB were measured, whatever their number, which
// Qt and the C library keep for their threads.
constexpr qint64 kMostMemoryKept = qint64{2} << 20;

void PlayCuts(SerialCutsOf& cuts, targetInterfaceType type, std::string const& table)
{
    auto planned = PlanCuts(cuts.Session(), type == TargetUart);
    std::ranges::copy(PlanHangUps(cuts.Session()), std::back_inserter(planned));
    auto outcomes = cuts.Run(planned);
    for (auto const& outcome : outcomes) {
        SCOPED_TRACE(Describe(outcome.planned));
        EXPECT_EQ(outcome.problem, "");
        ExpectResult(outcome, type);
        EXPECT_LE(outcome.first.time_to_end, GetLimit(outcome.planned, type, cuts.Steps()));
        ExpectShown(outcome.first);
        ExpectTexts(outcome, type);
    }
    if (IsLongRun()) {
        std::erase_if(outcomes, [](auto const& outcome) {
            return outcome.planned.cut.fault == SerialFault::kHangUpAfter;
        });
        EXPECT_TRUE(IsInDocument(MakeTable(outcomes, cuts.Steps()), table));
    }
}

void PlayAllCuts(SerialTransport const& transport, std::string const& table)
{
    auto const resources = GetProcessResources();
    SerialCutsOf cuts(transport);
    auto const memory = GetAllocatedBytes();

    PlayCuts(cuts, transport.type, table);

    // The system removes a thread from its list a moment after its end.
    EXPECT_TRUE(QTest::qWaitFor([&] { return GetProcessResources() == resources; }, 5000))
        << testing::PrintToString(GetProcessResources()) << ", before "
        << testing::PrintToString(resources);
    EXPECT_LE(GetAllocatedBytes() - memory, kMostMemoryKept);
}

TEST(SerialCuts, OverUartEndEachUpdateInTimeAndTheNextAttemptSucceeds)
{
    PlayAllCuts(GetUartTransport(), "serial-uart");
}

TEST(SerialCuts, OverMcubootEndEachUpdateInTimeAndTheNextAttemptSucceeds)
{
    PlayAllCuts(GetMcubootTransport(), "serial-mcuboot");
}

}  // namespace
}  // namespace cuts
