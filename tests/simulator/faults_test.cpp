// Each kind of fault, where it strikes, and what the unit does afterwards; the journal's text.
#include "simulator/faults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "simulator/bootloaders/stm32_bootloader.h"
#include "tests/simulator/bootloader_client.h"

namespace simulator {
namespace {

using test::Ask;
using test::B;
using test::Bytes;
using test::Hex;
using test::LastLine;
using test::Write;

auto const kErasedFlash = Hex("FF FF FF FF");

Stm32Bootloader MakeUnit(std::vector<Fault> const& faults)
{
    Stm32Bootloader unit({});
    Ask(unit, "7F");
    for (auto const& fault : faults) {
        unit.Faults().Add(fault);
    }
    return unit;
}

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

TEST(Faults, EveryKindChangesAnUpdateAndAllIsWellOnceItIsClearedAndTheUnitReset)
{
    auto const update = [](Stm32Bootloader& unit) {
        auto answers = Ask(unit, "02 FD 44 BB FF FF 00");
        for (auto const& step : {Write(unit, 0x08000000, B({1, 2, 3, 4})), Ask(unit, "11 EE"),
                                 Ask(unit, "08 00 00 00 08"), Ask(unit, "03 FC")}) {
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
        EXPECT_EQ(Ask(unit, "7F"), Hex("79")) << GetName(kind);
        EXPECT_EQ(update(unit), good) << GetName(kind);
    }
}

TEST(Faults, ChangeOneAnswerOnlyAndNothingInTheMemory)
{
    struct Row {
        Fault fault;
        char const* request;
        char const* answer;  // while the fault strikes
        char const* line;    // of the journal then
        char const* later;   // the answer to the same request afterwards
    };
    constexpr auto kId = "02 FD";
    constexpr auto kGoodId = "79 01 04 69 79";
    constexpr auto kRead = "11 EE 08 00 00 00 08 01 FE";
    constexpr auto kErase = "44 BB FF FF 00";
    for (auto const& [fault, request, answer, line, later] :
         {Row{{FaultKind::kNackCommand}, kId, "1F", "get-id nack fault", kGoodId},
          Row{{FaultKind::kDropAnswer, 3}, kId, "79 01 04 69", "get-id ack", kGoodId},
          Row{{FaultKind::kGarbageAnswer, 1, 1, 0xA5},
              kId,
              "A5 01 04 69 79",
              "get-id ack",
              kGoodId},
          Row{{FaultKind::kCutAnswer, 2, 1, 1}, kId, "79 01 79", "get-id ack", kGoodId},
          Row{{FaultKind::kExtraByte, 3, 1, 0x55}, kId, "79 01 04 69 79 55", "get-id ack", kGoodId},
          Row{{FaultKind::kWrongCount, 1, 1, 0x40}, kId, "79 40 04 69 79", "get-id ack", kGoodId},
          Row{{FaultKind::kSilentAtCommand}, kId, "", "get-id silent fault", ""},
          Row{{FaultKind::kNackErase}, kErase, "79 1F", "extended-erase all nack fault", "79 79"},
          Row{{FaultKind::kFlipReadData, 1, 1, 1},
              kRead,
              "79 79 79 54 55",
              "read 0x08000000 2 ack",
              "79 79 79 55 55"}}) {
        auto unit = MakeUnit({fault});
        unit.Memory().Load(0x08000000, Hex("55 55"));
        EXPECT_EQ(Ask(unit, request), Hex(answer)) << line;
        EXPECT_EQ(LastLine(unit), line);
        EXPECT_EQ(unit.Memory().Read(0x08000000, 2), Hex("55 55")) << line;
        EXPECT_EQ(Ask(unit, request), Hex(later)) << line;
        EXPECT_FALSE(unit.HasLeft()) << line;
        unit.Reset();
        EXPECT_EQ(Ask(unit, "7F"), Hex("79")) << line;
    }
}

TEST(Faults, RefuseAWriteAtEachOfItsSteps)
{
    for (auto const& [kind, answers] : {std::pair{FaultKind::kNackWriteCommand, "1F"},
                                        std::pair{FaultKind::kNackWriteAddress, "79 1F"},
                                        std::pair{FaultKind::kNackWriteData, "79 79 1F"}}) {
        auto unit = MakeUnit({{kind, 2, 1}});
        EXPECT_EQ(Write(unit, 0x08000000, B({1, 2, 3, 4})), Hex("79 79 79"));

        Bytes refused;
        for (auto const& step :
             {Hex("31 CE"), test::AddressBytes(0x08000004), test::DataBytes(B({1, 2, 3, 4}))}) {
            if (refused.empty() || refused.back() == std::byte{0x79}) {
                auto const answer = Ask(unit, step);
                refused.insert(refused.end(), answer.begin(), answer.end());
            }
        }

        EXPECT_EQ(refused, Hex(answers)) << GetName(kind);
        EXPECT_EQ(unit.Memory().Read(0x08000004, 4), kErasedFlash);
        EXPECT_EQ(Write(unit, 0x08000004, B({5, 6, 7, 8})), Hex("79 79 79"));
    }
}

TEST(Faults, MakeAnAnswerLate)
{
    auto unit = MakeUnit({{FaultKind::kLateAnswer, 1, 1, 1500}});

    auto const answers = unit.Receive(Hex("11 EE"));

    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].bytes, Hex("79"));
    EXPECT_EQ(answers[0].busy, std::chrono::milliseconds(1500));
}

TEST(Faults, HangOrVanishInsideAWriteBeforeAnythingIsProgrammed)
{
    for (auto const kind : {FaultKind::kSilentInWrite, FaultKind::kVanishInWrite}) {
        for (auto const cut : {0U, 1U, 3U, 4U, 100U}) {
            auto unit = MakeUnit({{kind, 2, 1, cut}});
            EXPECT_EQ(Write(unit, 0x08000000, B({1, 2, 3, 4})), Hex("79 79 79"));

            EXPECT_EQ(Write(unit, 0x08000004, B({5, 6, 7, 8})), Hex(cut == 0 ? "" : "79 79"));

            EXPECT_EQ(unit.HasLeft(), kind == FaultKind::kVanishInWrite);
            EXPECT_EQ(unit.Memory().Read(0x08000004, 4), kErasedFlash);
            EXPECT_EQ(LastLine(unit),
                      cut == 0 ? "write silent fault" : "write 0x08000004 silent fault");
        }
    }
}

TEST(Journal, HasEveryCommandInOrderAndPassesItToItsSinkAtOnce)
{
    auto unit = MakeUnit({});
    std::vector<std::string> heard;
    unit.GetJournal().SetSink([&](JournalEntry const& entry) { heard.push_back(ToText(entry)); });
    Write(unit, 0x08000000, B({1, 2, 3, 4}));
    Ask(unit, "44 BB 00 01 00 00 00 01 00");
    Ask(unit, "21 DE 08 00 00 00 08");

    EXPECT_EQ(heard, (std::vector<std::string>{"write 0x08000000 4 ack", "extended-erase 0-1 ack",
                                               "go 0x08000000 ack"}));
    JournalEntry const write{"write", 0x08000000, 4, "", Outcome::kAck, ""};
    EXPECT_EQ(unit.GetJournal().Entries()[1], write) << "after the sync";
}

TEST(Journal, WritesPagesAsRanges)
{
    EXPECT_EQ(PagesToText({}), "");
    EXPECT_EQ(PagesToText({0, 1, 2, 5, 4, 9, 10}), "0-2,5,4,9-10");
}

}  // namespace
}  // namespace simulator
