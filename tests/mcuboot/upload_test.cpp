// The upload: chunks, offsets that the unit asks for, progress, failures.
#include "mcuboot/upload.h"

#include <gmock/gmock.h>

#include <limits>
#include <tuple>

#include "tests/mcuboot/scripted_line.h"
#include "tests/support/pattern_image.h"

namespace mcuboot {
namespace {

using namespace std::chrono_literals;
using test::FromHex;
using test::OffAnswer;
using test::RcAnswer;
using test::ScriptedLine;
using testing::ElementsAre;

constexpr auto Pattern = PatternImage<QByteArray>;

// `times` times the same offsets.
std::vector<int> Repeat(int times, std::vector<int> const& offsets)
{
    std::vector<int> all;
    for (int i = 0; i < times; ++i) {
        all.insert(all.end(), offsets.begin(), offsets.end());
    }
    return all;
}

std::vector<int> operator+(std::vector<int> left, std::vector<int> const& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class UploadTest : public testing::Test {
protected:
    UploadTest() { exchange_.Attach(line_); }

    UploadResult UploadImage(QByteArray const& image)
    {
        percents_.clear();
        return Upload(exchange_, image, [this](int percent) { percents_.push_back(percent); });
    }

    void Asks(std::vector<int> const& offsets)
    {
        for (auto const offset : offsets) {
            line_.Answers(OffAnswer(offset));
        }
    }

    ScriptedLine line_;
    Exchange exchange_;
    std::vector<int> percents_;
};

// ---- What is sent ----

TEST_F(UploadTest, OfAnEmptyImageSendsNothingAndSucceeds)
{
    EXPECT_EQ(UploadImage({}).outcome, Outcome::kSuccess);
    EXPECT_TRUE(line_.Lines().empty());
    EXPECT_TRUE(percents_.empty());
}

TEST_F(UploadTest, SendsChunksOf1483BytesTheFirstWithFourKeys)
{
    auto const image = Pattern(1484);
    Asks({1483});
    EXPECT_EQ(UploadImage(image.first(1483)).outcome, Outcome::kSuccess);
    EXPECT_EQ(line_.Request(0).payload,
              FromHex("bf6464617461 5905cb") + image.first(1483) +
                  FromHex("636f6666 00 636c656e 1905cb 65696d616765 00 ff"));
    EXPECT_THAT(percents_, ElementsAre(100));

    Asks({1483, 1484});
    EXPECT_EQ(UploadImage(image).outcome, Outcome::kSuccess);
    EXPECT_EQ(line_.Request(1).payload,
              FromHex("bf6464617461 5905cb") + image.first(1483) +
                  FromHex("636f6666 00 636c656e 1905cc 65696d616765 00 ff"));
    EXPECT_EQ(line_.Request(2).payload,
              FromHex("bf6464617461 41") + image.last(1) + FromHex("636f6666 1905cb ff"));
    EXPECT_THAT(percents_, ElementsAre(99, 100));
    EXPECT_THAT(line_.Journal(), ElementsAre("2 1 1 0", "2 1 1 0", "2 1 1 1"));
}

TEST_F(UploadTest, GoesBackWhereTheUnitAsksForItAtTheStartWithTheFirstChunksKeys)
{
    auto const image = Pattern(4000);
    Asks({1483, 1000});
    line_.AlwaysAnswers(RcAnswer(0));
    EXPECT_EQ(UploadImage(image).outcome, Outcome::kSuccess);
    EXPECT_EQ(line_.Request(2).payload, FromHex("bf6464617461 5905cb") + image.mid(1000, 1483) +
                                            FromHex("636f6666 1903e8 ff"));
    EXPECT_EQ(line_.Request(4).payload,
              FromHex("bf6464617461 5822") + image.last(34) + FromHex("636f6666 190f7e ff"));
    EXPECT_THAT(percents_, ElementsAre(37, 25, 62, 99, 100));

    Asks({1483, 0});
    EXPECT_EQ(UploadImage(Pattern(2000)).outcome, Outcome::kSuccess);
    ASSERT_EQ(line_.Lines().size(), 9U);
    EXPECT_EQ(line_.Request(7).payload, line_.Request(5).payload);
    EXPECT_EQ(line_.Request(8).payload, line_.Request(6).payload);
}

TEST_F(UploadTest, SetsTheSequenceBackEachTime)
{
    line_.AlwaysAnswers(RcAnswer(0));
    exchange_.Send({kSmpWrite, 0, 5, "x"});
    EXPECT_EQ(Upload(exchange_, "image", {}).outcome, Outcome::kSuccess) << "without a callback";
    exchange_.Send({kSmpWrite, 0, 5, "x"});
    EXPECT_EQ(UploadImage("image").outcome, Outcome::kSuccess);
    EXPECT_THAT(line_.Journal(), ElementsAre("2 0 5 0", "2 1 1 0", "2 0 5 1", "2 1 1 0"));
}

// ---- What the unit asks for ----

TEST_F(UploadTest, FollowsTheUnitUntilItIsDoneOrStuck)
{
    auto const to_and_fro = [](int furthest) {
        return std::vector{furthest} + Repeat(15, {0, furthest});
    };
    std::vector<int> single_repeats{1483, 0};
    for (int i = 0; i < 15; ++i) {
        single_repeats = single_repeats + std::vector{10 * i, 10 * i + 10};
    }
    using One = std::vector<int>;
    auto const ok = Outcome::kSuccess;
    auto const negative = Outcome::kNegativeOffset;
    auto const stuck = Outcome::kStalled;
    int const lowest = std::numeric_limits<int>::min();
    auto const repeats = Repeat(15, {0}) + One{1483} + Repeat(15, {1483}) + One{3000};
    auto const turns = Repeat(15, {1483, 1483, 0, 0}) + std::vector{1483, 1483, 0};
    using Row = std::tuple<char const*, std::vector<int>, Outcome, int>;
    for (auto const& [name, asks, outcome, offset] : {
             Row{"leaps ahead", {2999, 3000}, ok, 3000},
             Row{"asks beyond the end", {6000}, ok, 6000},
             Row{"asks for the largest offset", {0x7FFFFFFF}, ok, 0x7FFFFFFF},
             Row{"asks for -1", {-1}, negative, -1},
             Row{"asks for the lowest offset", {lowest}, negative, lowest},
             Row{"15 repeats at each offset", repeats, ok, 3000},
             Row{"16 repeats of the first offset", Repeat(16, {0}), stuck, 0},
             Row{"16 repeats of another", One{1483} + Repeat(16, {1483}), stuck, 1483},
             Row{"15 single repeats on the way forward", single_repeats + One{3000}, ok, 3000},
             Row{"15 ways back twice", to_and_fro(1483) + to_and_fro(2966) + One{3000}, ok, 3000},
             Row{"16 ways back", Repeat(16, {1483, 0}), stuck, 0},
             Row{"repeats and ways back in turns", turns, stuck, 0},
         }) {
        auto const first = line_.Lines().size();
        Asks(asks);
        auto const result = UploadImage(Pattern(3000));
        EXPECT_EQ(result.outcome, outcome) << name;
        EXPECT_EQ(result.offset, offset) << name;
        EXPECT_EQ(line_.Lines().size() - first, asks.size()) << name;
        EXPECT_EQ(percents_.size(), asks.size() - (outcome == Outcome::kNegativeOffset ? 1 : 0))
            << name;
    }
}

TEST_F(UploadTest, ReportsHowFarTheUnitHasGot)
{
    line_.AlwaysAnswers(RcAnswer(0));
    UploadImage(Pattern(3000));
    EXPECT_THAT(percents_, ElementsAre(49, 98, 100)) << "no offset: the whole chunk";
    Asks({6000});
    UploadImage(Pattern(3000));
    EXPECT_THAT(percents_, ElementsAre(200));
    Asks({0x7FFFFFFF});
    UploadImage(Pattern(1));
    EXPECT_THAT(percents_, ElementsAre(0x7FFFFFFF)) << "no overflow";
}

// ---- Failures ----

TEST_F(UploadTest, EndsAtTheFirstAnswerThatIsMissingUnusableOrAnError)
{
    struct Row {
        QByteArray raw;
        Outcome outcome;
        int error_code;
    };
    for (auto const& [raw, outcome, error_code] :
         {Row{{}, Outcome::kNoAnswer, 0}, Row{"noise\n", Outcome::kUnusable, 0},
          Row{RcAnswer(3), Outcome::kErrorCode, 3}}) {
        Asks({1483});
        line_.Answers(raw);
        auto const result = UploadImage(Pattern(4000));
        EXPECT_EQ(result.outcome, outcome);
        EXPECT_EQ(result.offset, 1483) << "of the chunk that failed";
        EXPECT_EQ(result.error_code, error_code);
        EXPECT_THAT(percents_, ElementsAre(37));
    }
    EXPECT_EQ(line_.Lines().size(), 6U) << "no chunk is repeated";
    exchange_.Detach();
    EXPECT_EQ(UploadImage("image").outcome, Outcome::kNoAnswer);
}

TEST_F(UploadTest, ExplainsWhyItEnded)
{
    struct Row {
        ScriptedLine::Piece piece;
        char const* cause;
    };
    for (auto const& [piece, cause] : {
             Row{{}, "no answer within 3000 ms"},
             Row{{RcAnswer(7), 36ms}, "error code 7 after 39 ms"},
             Row{{"boot\x01\n", 4ms},
                 "6 bytes after 7 ms, not a good answer: no line of it is a frame: "
                 "\"boot\\x01\\x0a\""},
             Row{{OffAnswer(-5)}, "the unit asks for offset -5"},
         }) {
        Asks({1483});
        line_.AnswersInPieces({piece});
        EXPECT_EQ(UploadImage(Pattern(4000)).cause.toStdString(),
                  std::string("chunk 2 of 3 at offset 1483: ") + cause);
    }
    Asks(Repeat(16, {0}));
    EXPECT_EQ(UploadImage(Pattern(4000)).cause.toStdString(),
              "chunk 1 of 3 at offset 0: the unit asks for offset 0 again and gets no further");
}

TEST_F(UploadTest, CountsItsRepeatsAndItsSlowestAnswers)
{
    line_.AnswersInPieces({{OffAnswer(1483), 900ms}});
    line_.AnswersInPieces({{OffAnswer(1483), 20ms}});
    line_.AnswersInPieces({{OffAnswer(2966), 50ms}});
    line_.StaysSilent();
    auto const figures = UploadImage(Pattern(4000)).figures;
    EXPECT_EQ(figures.image_size, 4000);
    EXPECT_EQ(figures.acknowledged, 2966);
    EXPECT_EQ(figures.repeated_chunks, 1);
    EXPECT_EQ(figures.first_answer, 903ms);
    EXPECT_EQ(figures.slowest_answer, 53ms) << "a time-out is no answer";
    EXPECT_EQ(figures.slowest_offset, 1483);

    line_.StaysSilent();
    EXPECT_EQ(UploadImage(Pattern(4000)).figures.first_answer, std::nullopt);
    line_.Answers(OffAnswer(4000));
    EXPECT_EQ(UploadImage(Pattern(4000)).figures.slowest_answer, std::nullopt);
}

TEST_F(UploadTest, WaitsTenSecondsForAChunkAtTheStartAndThreeForAnyOther)
{
    using Row = std::pair<std::vector<int>, std::chrono::milliseconds>;
    for (auto const& [asks, waits] :
         {Row{{}, 10002ms}, Row{{1483}, 3000ms}, Row{{1483, 0}, 10002ms}}) {
        Asks(asks);
        line_.StaysSilent();
        auto const before = line_.Now();
        EXPECT_EQ(UploadImage(Pattern(4000)).outcome, Outcome::kNoAnswer);
        // Each answered chunk takes its three pauses.
        auto const answered = static_cast<int>(asks.size()) * 16ms;
        EXPECT_EQ(line_.Now() - before, answered + 13ms + waits) << asks.size();
    }
}

}  // namespace
}  // namespace mcuboot
