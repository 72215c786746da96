// The unit that answers as a recorded one did: what counts as a difference, and what does not.
#include "simulator/bootloaders/replayed_unit.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>

#include "simulator/bootloaders/smp_line.h"
#include "tests/simulator/bootloader_client.h"

namespace simulator {
namespace {

using namespace std::chrono_literals;
using test::Ask;
using test::Bytes;
using test::Hex;
using test::LastLine;

// Packets of a record, one a millisecond and numbered from 10.
class Packets {
public:
    Packets& Sent(Bytes const& bytes) { return Add(false, bytes); }
    Packets& Received(Bytes const& bytes) { return Add(true, bytes); }
    Packets& Sent(std::string const& hex) { return Add(false, Hex(hex)); }
    Packets& Received(std::string const& hex) { return Add(true, Hex(hex)); }
    Packets& Wait(std::chrono::milliseconds time)
    {
        time_ += time;
        return *this;
    }

    ReplayedUnit Make(unsigned speed = 1) const { return ReplayedUnit({packets_, false, speed}); }
    ReplayedUnit MakeWithLines() const { return ReplayedUnit({packets_, true, 1}); }

private:
    Packets& Add(bool from_unit, Bytes const& bytes)
    {
        time_ += 1ms;
        packets_.push_back({packets_.size() + 10, from_unit, time_, bytes});
        return *this;
    }

    std::vector<ReplayedPacket> packets_;
    std::chrono::nanoseconds time_{0};
};

Packets MakeConnect()
{
    return Packets().Sent("7F").Received("79").Sent("02 FD").Received("79 01 04").Received("15 79");
}

TEST(ReplayedUnit, AnswersAsRecordedWithTheRecordedDelays)
{
    auto const packets = Packets().Sent("7F").Wait(4ms).Received("79").Wait(9ms).Received("41");
    struct Row {
        unsigned speed;
        std::chrono::microseconds first;
        std::chrono::microseconds second;
    };
    for (auto const& [speed, first, second] :
         {Row{0, 0us, 0us}, Row{1, 5000us, 10000us}, Row{2, 2500us, 5000us}}) {
        auto unit = packets.Make(speed);

        auto const answers = unit.Receive(Hex("7F"));

        ASSERT_EQ(answers.size(), 2U) << speed;
        EXPECT_EQ(answers[0].bytes, Hex("79")) << speed;
        EXPECT_EQ(answers[0].busy, first) << speed;
        EXPECT_TRUE(answers[0].hurries_earlier);
        EXPECT_EQ(answers[1].bytes, Hex("41")) << speed;
        EXPECT_EQ(answers[1].busy, second) << speed;
        EXPECT_FALSE(answers[1].hurries_earlier);
    }
}

TEST(ReplayedUnit, TakesRequestsInPiecesOfAnySize)
{
    auto unit = MakeConnect().Make();
    EXPECT_EQ(Ask(unit, "7F 02"), Hex("79"));
    EXPECT_EQ(unit.Status().state, UnitState::kSynchronised);
    EXPECT_EQ(Ask(unit, "FD"), Hex("79 01 04 15 79"));
    EXPECT_EQ(LastLine(unit), "complete ack");
}

TEST(ReplayedUnit, NamesTheFirstDifferenceAndFallsSilent)
{
    struct Row {
        char const* received;
        char const* line;
    };
    for (auto const& [received, line] :
         {Row{"02", "difference silent packet 10, byte 1 of 1: 0x7f expected, 0x02 received"},
          Row{"7F 02 FC", "difference silent packet 12, byte 2 of 2: 0xfd expected, 0xfc received"},
          Row{"7F 00", "difference silent packet 12, byte 1 of 2: 0x02 expected, 0x00 received"},
          Row{"7F 02 FD 11",
              "difference silent after the last packet: nothing expected, 0x11 received"}}) {
        auto unit = MakeConnect().Make();
        Ask(unit, received);
        EXPECT_EQ(LastLine(unit), line);
        EXPECT_EQ(Ask(unit, "7F"), Bytes());

        unit.Reset();
        EXPECT_EQ(Ask(unit, "7F"), Hex("79"));
    }
}

TEST(ReplayedUnit, TheFirstRequestBeginsAgainWhereARequestMayBegin)
{
    auto unit = MakeConnect().Make();
    for (auto const* received : {"7F", "7F 02 FD", "7F 7F 02 FD"}) {
        Ask(unit, received);
        EXPECT_NE(LastLine(unit).substr(0, 10), "difference") << received;
    }
    EXPECT_EQ(LastLine(unit), "complete ack");
    EXPECT_EQ(unit.Status().connects, 4U);

    Ask(unit, "7F 02 7F");
    EXPECT_EQ(LastLine(unit),
              "difference silent packet 12, byte 2 of 2: 0xfd expected, 0x7f received");
}

TEST(ReplayedUnit, AByteThatIsExpectedDoesNotBeginAgain)
{
    auto unit = Packets().Sent("7F").Received("79").Sent("7F 01").Received("79 00").Make();
    EXPECT_EQ(Ask(unit, "7F"), Hex("79"));
    EXPECT_EQ(Ask(unit, "7F 01"), Hex("79 00"));
}

TEST(ReplayedUnit, LeavesOutWhatCameBeforeTheFirstRequest)
{
    auto unit = Packets().Received("41").Sent("7F").Received("79").Make();
    EXPECT_EQ(Ask(unit, "7F"), Hex("79"));
}

TEST(ReplayedUnit, NeedsARequest)
{
    EXPECT_THROW(Packets().Received("41").Make(), std::invalid_argument);
    EXPECT_THROW(Packets().Sent("06 09 41").MakeWithLines(), std::invalid_argument);
}

// ---- Lines of MCUboot's ----

Bytes MakeLine(uint8_t sequence, char payload)
{
    auto const line = MakeSmpLines(MakeSmpRequest(
        {.operation = 2, .group = 1, .sequence = sequence, .command = 1, .payload{1, payload}}));
    return test::Bytes(reinterpret_cast<std::byte const*>(line.begin()),
                       reinterpret_cast<std::byte const*>(line.end()));
}

Packets MakeUpload()
{
    return Packets().Sent(MakeLine(7, 'a')).Received("01").Sent(MakeLine(0, 'b')).Received("02");
}

TEST(ReplayedUnit, TheSequenceNumberOfALineIsNotCompared)
{
    auto unit = MakeUpload().MakeWithLines();
    EXPECT_EQ(Ask(unit, MakeLine(0, 'a')), Hex("01"));
    EXPECT_EQ(Ask(unit, MakeLine(255, 'b')), Hex("02"));
    EXPECT_EQ(LastLine(unit), "complete ack");
}

TEST(ReplayedUnit, ADifferentLineIsNamedByTheByteOfItsMessage)
{
    auto unit = MakeUpload().MakeWithLines();
    Ask(unit, MakeLine(7, 'a'));
    EXPECT_EQ(Ask(unit, MakeLine(0, 'c')), Bytes());
    // Behind two bytes of length and eight of header.
    EXPECT_EQ(LastLine(unit),
              "difference silent packet 12, byte 11 of 13 in its message: 0x62 expected, 0x63 "
              "received");
}

TEST(ReplayedUnit, ALineWithoutAMessageIsComparedAsItIs)
{
    auto unit = Packets().Sent("41 42 0A").Received("01").MakeWithLines();
    EXPECT_EQ(Ask(unit, "41 42 0A"), Hex("01"));
    Ask(unit, "41 0A");
    EXPECT_EQ(LastLine(unit),
              "difference silent after the last packet: nothing expected, 0x41 "
              "received");
    unit.Reset();
    Ask(unit, "41 0A");
    EXPECT_EQ(LastLine(unit),
              "difference silent packet 10, byte 2 of 2 in its message: 0x42 expected, nothing "
              "received");

    auto other = Packets().Sent("41 42 0A").MakeWithLines();
    Ask(other, Bytes(100000, std::byte{'A'}));
    EXPECT_EQ(LastLine(other).substr(0, 29), "difference silent packet 10, ") << "without an end";
}

TEST(ReplayedUnit, TheFirstLineBeginsAgainAtAnyTime)
{
    auto unit = MakeUpload().MakeWithLines();
    EXPECT_EQ(Ask(unit, MakeLine(7, 'a')), Hex("01"));
    EXPECT_EQ(Ask(unit, MakeLine(8, 'a')), Hex("01"));
    EXPECT_EQ(Ask(unit, MakeLine(0, 'b')), Hex("02"));
    EXPECT_EQ(Ask(unit, MakeLine(9, 'a')), Hex("01"));
    EXPECT_EQ(unit.Status().connects, 3U);
}

}  // namespace
}  // namespace simulator
