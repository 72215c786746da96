// Each kind of fault, where it strikes, and what the unit does afterwards; the journal's words.
#include "simulator/faults.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/bootloaders/stm32_bootloader.h"
#include "tests/simulator/bootloader_client.h"

namespace simulator {
namespace {

using test::Ask;
using test::B;
using test::Bytes;
using test::Write;

Stm32Bootloader MakeUnit(std::vector<Fault> const& faults)
{
    Stm32Bootloader unit({});
    Ask(unit, B({0x7F}));
    for (auto const& fault : faults) {
        unit.Faults().Add(fault);
    }
    return unit;
}

Bytes AskId(Stm32Bootloader& unit)
{
    return Ask(unit, B({0x02, 0xFD}));
}

std::vector<std::string> Lines(Stm32Bootloader const& unit)
{
    std::vector<std::string> lines;
    for (auto const& entry : unit.GetJournal().Entries()) {
        lines.push_back(ToText(entry));
    }
    return lines;
}

auto const kGoodId = B({0x79, 0x01, 0x04, 0x69, 0x79});

TEST(Faults, EveryKindHasANameOfItsOwnThatFindsIt)
{
    std::set<std::string_view> names;
    std::set<FaultKind> kinds(kStm32FaultKinds.begin(), kStm32FaultKinds.end());
    kinds.insert(kMcubootFaultKinds.begin(), kMcubootFaultKinds.end());
    kinds.insert(kDfuFaultKinds.begin(), kDfuFaultKinds.end());
    for (auto const kind : kinds) {
        EXPECT_EQ(FindFaultKind(GetName(kind)), kind);
        names.insert(GetName(kind));
    }
    EXPECT_EQ(names.size(), kinds.size());
    EXPECT_EQ(FindFaultKind("nack"), std::nullopt);
}

TEST(Faults, StrikeFromTheNthOccurrenceAsOftenAsAsked)
{
    FaultList faults(kStm32FaultKinds);
    faults.Add({FaultKind::kNackCommand, 2, 3});

    std::string pattern;
    for (int i = 0; i < 6; ++i) {
        pattern += faults.Strike(FaultMoment::kCommand).empty() ? '.' : 'x';
        EXPECT_TRUE(faults.Strike(FaultMoment::kWrite).empty());
    }

    EXPECT_EQ(pattern, ".xxx..");
    EXPECT_EQ(faults.Strikes(), 3U);
}

TEST(Faults, AreRefusedByAUnitThatCannotShowThem)
{
    FaultList faults(kStm32FaultKinds);

    EXPECT_THROW(faults.Add({FaultKind::kKeepOffset}), std::invalid_argument);
    EXPECT_NO_THROW(faults.Add({FaultKind::kLateAnswer}));
}

TEST(Faults, EveryKindChangesAnUpdateAndAllIsWellOnceItIsClearedAndTheUnitReset)
{
    auto const update = [](Stm32Bootloader& unit) {
        auto answers = AskId(unit);
        for (auto const& step :
             {Ask(unit, B({0x44, 0xBB})), Ask(unit, B({0xFF, 0xFF, 0x00})),
              Write(unit, 0x08000000, B({1, 2, 3, 4})), Ask(unit, B({0x11, 0xEE})),
              Ask(unit, B({0x08, 0x00, 0x00, 0x00, 0x08})), Ask(unit, B({0x03, 0xFC}))}) {
            answers.insert(answers.end(), step.begin(), step.end());
        }
        return answers;
    };
    auto undisturbed = MakeUnit({});
    auto const good = update(undisturbed);

    for (auto const kind : kStm32FaultKinds) {
        // One of the answers is a lone ACK: cut to nothing it shows.
        auto unit = MakeUnit({{kind, 1, 1, kind == FaultKind::kCutAnswer ? 0U : 2U}});

        auto const answers = update(unit);
        if (kind != FaultKind::kLateAnswer) {
            EXPECT_NE(answers, good) << GetName(kind);
        }
        EXPECT_EQ(unit.Faults().Strikes(), 1U) << GetName(kind);

        unit.Faults().Clear();
        unit.Reset();
        EXPECT_EQ(Ask(unit, B({0x7F})), B({0x79})) << GetName(kind);
        EXPECT_EQ(update(unit), good) << GetName(kind);
    }
}

TEST(Faults, RefuseACommandAndTakeItTheNextTime)
{
    auto unit = MakeUnit({{FaultKind::kNackCommand, 2}});

    EXPECT_EQ(AskId(unit), kGoodId);
    EXPECT_EQ(AskId(unit), B({0x1F}));
    EXPECT_EQ(AskId(unit), kGoodId);
    EXPECT_EQ(Lines(unit).at(2), "get-id nack fault");
}

TEST(Faults, RefuseAWriteAtEachOfItsSteps)
{
    for (auto const& [kind, answers] :
         {std::pair{FaultKind::kNackWriteCommand, B({0x1F})},
          std::pair{FaultKind::kNackWriteAddress, B({0x79, 0x1F})},
          std::pair{FaultKind::kNackWriteData, B({0x79, 0x79, 0x1F})}}) {
        auto unit = MakeUnit({{kind, 2, 1}});
        EXPECT_EQ(Write(unit, 0x08000000, B({1, 2, 3, 4})), B({0x79, 0x79, 0x79}));

        Bytes refused;
        for (auto const& step :
             {B({0x31, 0xCE}), test::AddressBytes(0x08000004), test::DataBytes(B({1, 2, 3, 4}))}) {
            if (refused.empty() || refused.back() == std::byte{0x79}) {
                auto const answer = Ask(unit, step);
                refused.insert(refused.end(), answer.begin(), answer.end());
            }
        }

        EXPECT_EQ(refused, answers) << GetName(kind);
        EXPECT_EQ(unit.Memory().Read(0x08000004, 4), B({0xFF, 0xFF, 0xFF, 0xFF}));
        EXPECT_EQ(Write(unit, 0x08000004, B({5, 6, 7, 8})), B({0x79, 0x79, 0x79}));
    }
}

TEST(Faults, RefusedEraseErasesNothing)
{
    auto unit = MakeUnit({{FaultKind::kNackErase}});

    EXPECT_EQ(Ask(unit, B({0x44, 0xBB, 0xFF, 0xFF, 0x00})), B({0x79, 0x1F}));
    EXPECT_EQ(unit.ErasedPages(), 0U);
    EXPECT_EQ(Lines(unit).back(), "extended-erase all nack fault");
}

TEST(Faults, SpoilTheAnswerThatTheyAreFor)
{
    auto dropped = MakeUnit({{FaultKind::kDropAnswer, 3}});
    EXPECT_EQ(AskId(dropped), B({0x79, 0x01, 0x04, 0x69}));
    auto garbage = MakeUnit({{FaultKind::kGarbageAnswer, 1, 1, 0xA5}});
    EXPECT_EQ(AskId(garbage), B({0xA5, 0x01, 0x04, 0x69, 0x79}));
    auto cut = MakeUnit({{FaultKind::kCutAnswer, 2, 1, 1}});
    EXPECT_EQ(AskId(cut), B({0x79, 0x01, 0x79}));
    auto extra = MakeUnit({{FaultKind::kExtraByte, 3, 1, 0x55}});
    EXPECT_EQ(AskId(extra), B({0x79, 0x01, 0x04, 0x69, 0x79, 0x55}));
    auto wrong_count = MakeUnit({{FaultKind::kWrongCount, 1, 1, 0x40}});
    EXPECT_EQ(AskId(wrong_count), B({0x79, 0x40, 0x04, 0x69, 0x79}));
}

TEST(Faults, MakeAnAnswerLate)
{
    auto unit = MakeUnit({{FaultKind::kLateAnswer, 1, 1, 1500}});

    auto const answers = unit.Receive(B({0x11, 0xEE}));

    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].bytes, B({0x79}));
    EXPECT_EQ(answers[0].busy, std::chrono::milliseconds(1500));
}

TEST(Faults, FlipABitOfTheDataReadAndNotOfTheMemory)
{
    auto unit = MakeUnit({{FaultKind::kFlipReadData, 1, 1, 0x01}});

    EXPECT_EQ(Ask(unit, B({0x11, 0xEE, 0x08, 0x00, 0x00, 0x00, 0x08, 0x01, 0xFE})),
              B({0x79, 0x79, 0x79, 0xFE, 0xFF}));
    EXPECT_EQ(unit.Memory().Read(0x08000000, 1), B({0xFF}));
}

TEST(Faults, HangAtACommandUntilTheReset)
{
    auto unit = MakeUnit({{FaultKind::kSilentAtCommand, 2}});

    EXPECT_EQ(AskId(unit), kGoodId);
    EXPECT_EQ(AskId(unit), B({}));
    EXPECT_EQ(AskId(unit), B({}));
    EXPECT_FALSE(unit.HasLeft());
    EXPECT_EQ(Lines(unit).back(), "get-id silent fault");

    unit.Reset();
    EXPECT_EQ(Ask(unit, B({0x7F})), B({0x79}));
}

TEST(Faults, HangOrVanishInsideAWriteBeforeAnythingIsProgrammed)
{
    for (auto const kind : {FaultKind::kSilentInWrite, FaultKind::kVanishInWrite}) {
        for (auto const cut : {0U, 1U, 3U, 4U, 100U}) {
            auto unit = MakeUnit({{kind, 2, 1, cut}});
            EXPECT_EQ(Write(unit, 0x08000000, B({1, 2, 3, 4})), B({0x79, 0x79, 0x79}));

            EXPECT_EQ(Write(unit, 0x08000004, B({5, 6, 7, 8})), cut == 0 ? B({}) : B({0x79, 0x79}));

            EXPECT_EQ(unit.HasLeft(), kind == FaultKind::kVanishInWrite);
            EXPECT_EQ(unit.Memory().Read(0x08000004, 4), B({0xFF, 0xFF, 0xFF, 0xFF}));
            EXPECT_EQ(Lines(unit).back(),
                      cut == 0 ? "write silent fault" : "write 0x08000004 silent fault");
        }
    }
}

TEST(Journal, TellsEveryCommandInOrder)
{
    auto unit = MakeUnit({});
    Write(unit, 0x08000000, B({1, 2, 3, 4}));
    Ask(unit, B({0x44, 0xBB, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x00}));
    Ask(unit, B({0x21, 0xDE, 0x08, 0x00, 0x00, 0x00, 0x08}));

    EXPECT_EQ(Lines(unit),
              (std::vector<std::string>{"sync ack", "write 0x08000000 4 ack",
                                        "extended-erase 0-1 ack", "go 0x08000000 ack"}));
    JournalEntry const write{"write", 0x08000000, 4, "", Outcome::kAck, ""};
    EXPECT_EQ(unit.GetJournal().Entries()[1], write);
}

TEST(Journal, PassesEachEntryToItsSinkAtOnce)
{
    auto unit = MakeUnit({});
    std::vector<std::string> heard;
    unit.GetJournal().SetSink([&](JournalEntry const& entry) { heard.push_back(ToText(entry)); });

    AskId(unit);

    EXPECT_EQ(heard, std::vector<std::string>{"get-id ack"});
}

TEST(Journal, WritesPagesAsRanges)
{
    EXPECT_EQ(PagesToText({}), "");
    EXPECT_EQ(PagesToText({0, 1, 2, 5, 4, 9, 10}), "0-2,5,4,9-10");
}

}  // namespace
}  // namespace simulator
