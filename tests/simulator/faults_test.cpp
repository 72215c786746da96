// Each kind of fault, where it strikes, and what the unit does afterwards; the journal's text.
#include "simulator/faults.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/simulator/stm32_conversation.h"

namespace simulator {
namespace {

using test::Ask;
using test::ExpectHexConversation;
using test::Hex;
using test::MakeSynchronised;

TEST(Faults, EveryKindHasANameOfItsOwnThatFindsItAndThatTheReadmeLists)
{
    std::ifstream file(FW_SIMULATOR_README);
    std::string const readme{std::istreambuf_iterator<char>(file), {}};
    std::set<std::string_view> names;
    for (auto const& row : kFaults) {
        EXPECT_EQ(FindFaultKind(GetName(row.kind)), row.kind);
        EXPECT_THAT(readme, testing::HasSubstr(std::string(row.name)));
        names.insert(row.name);
    }
    EXPECT_EQ(names.size(), kFaults.size());
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

// Whatever its parameter: none is given here.
TEST(Faults, EveryKindChangesAnUpdateAndAllIsWellOnceItIsClearedAndTheUnitReset)
{
    auto const update = [](Stm32Bootloader& unit) {
        std::vector<test::Bytes> answers;
        for (auto const* step :
             {"02 FD 44 BB FF FF 00", "31 CE", "08 00 00 00 08", "07 01 02 03 04 05 06 07 08 0F",
              "11 EE", "08 00 00 00 08", "03 FC"}) {
            answers.push_back(Ask(unit, step));
        }
        return answers;
    };
    auto undisturbed = MakeSynchronised();
    auto const good = update(undisturbed);

    for (auto const kind : kStm32FaultKinds) {
        auto unit = MakeSynchronised();
        unit.Faults().Add({kind});

        EXPECT_EQ(update(unit) == good, kind == FaultKind::kLateAnswer) << GetName(kind);
        EXPECT_EQ(unit.Faults().Strikes(), 1U) << GetName(kind);

        unit.Faults().Clear();
        unit.Reset();
        EXPECT_EQ(Ask(unit, "7F"), Hex("79")) << GetName(kind);
        EXPECT_EQ(update(unit), good) << GetName(kind);
    }
}

TEST(Faults, ThatInvertBitsInvertOneIfNoneIsNamed)
{
    for (auto const kind : {FaultKind::kFlipReadData, FaultKind::kWrongCheckValue}) {
        FaultList faults(std::span(&kind, 1));
        faults.Add({kind});
        faults.Add({kind, 1, 1, 0x40});

        auto const striking = faults.Strike(GetMoment(kind));

        ASSERT_EQ(striking.size(), 2U);
        EXPECT_EQ(striking[0].parameter, 1U) << GetName(kind);
        EXPECT_EQ(striking[1].parameter, 0x40U) << GetName(kind);
    }
}

TEST(Faults, ChangeOneAnswerOnlyAndNothingInTheMemory)
{
    constexpr auto kId = "02 FD";
    constexpr auto kGoodId = "79 01 04 69 79";
    constexpr auto kRead = "11 EE 08 00 00 00 08 01 FE";
    struct Row {
        char const* fault;
        char const* request;
        char const* answer;  // while the fault strikes
        char const* line;    // of the journal then
        char const* later;   // the answer to the same request afterwards
    };
    for (auto const& row :
         {Row{"nack-command", kId, "1F", "get-id nack fault", kGoodId},
          Row{"drop-answer 3", kId, "79 01 04 69", "get-id ack", kGoodId},
          Row{"garbage-answer 1 1 0xA5", kId, "A5 01 04 69 79", "get-id ack", kGoodId},
          Row{"cut-answer 2 1 1", kId, "79 01 79", "get-id ack", kGoodId},
          Row{"extra-byte 3 1 0x55", kId, "79 01 04 69 79 55", "get-id ack", kGoodId},
          Row{"wrong-count 1 1 0x40", kId, "79 40 04 69 79", "get-id ack", kGoodId},
          Row{"silent-at-command", kId, "", "get-id silent fault", ""},
          Row{"nack-erase", "44 BB FF FF 00", "79 1F", "extended-erase all nack fault", "79 79"},
          Row{"flip-read-data 1 1 1", kRead, "79 79 79 54 55", "read 0x08000000 2 ack",
              "79 79 79 55 55"}}) {
        auto unit = MakeSynchronised();
        ExpectHexConversation(
            unit,
            fmt::format("load 0x08000000 55 55; fault {}; {} > {} = {}; "
                        "memory 0x08000000 2 > 55 55; {} > {}; unit left > no; reset; 7F > 79",
                        row.fault, row.request, row.answer, row.line, row.request, row.later));
    }
}

constexpr auto kFirstWrite = "31 CE 08 00 00 00 08 07 01 02 03 04 05 06 07 08 0F > 79 79 79";

TEST(Faults, RefuseAWriteAtEachOfItsSteps)
{
    for (auto const& [fault, refused] :
         {std::pair{"nack-write-command", "31 CE > 1F"},
          std::pair{"nack-write-address", "31 CE 08 00 00 08 00 > 79 1F"},
          std::pair{"nack-write-data",
                    "31 CE 08 00 00 08 00 07 01 02 03 04 05 06 07 08 0F > 79 79 1F"}}) {
        auto unit = MakeSynchronised();
        ExpectHexConversation(
            unit, fmt::format("fault {} 2; {}; {}; memory 0x08000008 4 > FF FF FF FF; "
                              "31 CE 08 00 00 08 00 07 05 06 07 08 09 0A 0B 0C 0F > 79 79 79; "
                              "memory 0x08000008 4 > 05 06 07 08",
                              fault, kFirstWrite, refused));
    }
}

TEST(Faults, MakeAnAnswerLate)
{
    auto unit = MakeSynchronised();
    unit.Faults().Add({FaultKind::kLateAnswer, 1, 1, 1500});

    auto const answers = unit.Receive(Hex("11 EE"));

    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].bytes, Hex("79"));
    EXPECT_EQ(answers[0].busy, std::chrono::milliseconds(1500));
}

TEST(Faults, HangOrVanishInsideAWriteBeforeAnythingIsProgrammed)
{
    for (auto const& [fault, has_left] :
         {std::pair{"silent-in-write", "no"}, std::pair{"vanish-in-write", "yes"}}) {
        for (auto const cut : {0U, 1U, 7U, 8U, 100U}) {
            auto unit = MakeSynchronised();
            ExpectHexConversation(
                unit, fmt::format("fault {} 2 1 {}; {}; "
                                  "31 CE 08 00 00 08 00 07 05 06 07 08 09 0A 0B 0C 0F > {} "
                                  "silent fault; unit left > {}; "
                                  "memory 0x08000008 8 > FF FF FF FF FF FF FF FF",
                                  fault, cut, kFirstWrite,
                                  cut == 0 ? "= write" : "79 79 = write 0x08000008", has_left));
        }
    }
}

TEST(Journal, HasEveryCommandInOrderAndPassesItToItsSinkAtOnce)
{
    auto unit = MakeSynchronised();
    std::vector<std::string> heard;
    unit.GetJournal().SetSink([&](JournalEntry const& entry) { heard.push_back(ToText(entry)); });
    ExpectHexConversation(unit, kFirstWrite);
    Ask(unit, "44 BB 00 01 00 00 00 01 00");
    Ask(unit, "21 DE 08 00 00 00 08");

    EXPECT_EQ(heard, (std::vector<std::string>{"write 0x08000000 8 ack", "extended-erase 0-1 ack",
                                               "go 0x08000000 ack"}));
    JournalEntry const write{"write", 0x08000000, 8, "", Outcome::kAck, ""};
    EXPECT_EQ(unit.GetJournal().Entries()[1], write) << "after the sync";
}

TEST(Journal, WritesPagesAsRanges)
{
    EXPECT_EQ(PagesToText({}), "");
    EXPECT_EQ(PagesToText({0, 1, 2, 5, 4, 9, 10}), "0-2,5,4,9-10");
}

}  // namespace
}  // namespace simulator
