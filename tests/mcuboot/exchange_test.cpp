// One line out, one answer in: the pauses, what ends an answer, how time is counted, what is wrong
// with an answer. All times are literals, so that a figure that changes fails here.
#include "mcuboot/exchange.h"

#include <gmock/gmock.h>

#include <map>
#include <tuple>

#include "tests/mcuboot/scripted_line.h"

namespace mcuboot {
namespace {

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using test::AnswerWith;
using test::FromHex;
using test::Line;
using test::RcAnswer;
using test::ScriptedLine;
using testing::ElementsAre;

class ExchangeTest : public testing::Test {
protected:
    QByteArray Ask(std::chrono::milliseconds timeout = 1000ms)
    {
        return SendAndReceive(line_, request_, timeout);
    }

    ScriptedLine line_;
    Exchange exchange_;
    QByteArray const request_ = Line("AAwAAAACAAEAAL//xLc=");
    QByteArray const answer_ = RcAnswer(0);
};

TEST_F(ExchangeTest, PausesBeforeTheRequestAndAfterItAndAfterTheAnswer)
{
    line_.Sends(RcAnswer(5), 9ms);  // before the request: discarded
    line_.Answers("boot\r\n" + answer_);
    EXPECT_EQ(Ask(), "boot\r\n" + answer_) << "as it came";
    EXPECT_THAT(line_.Lines(), ElementsAre(request_));
    EXPECT_THAT(line_.Steps(), ElementsAre("pause 10", "read 0", "clear", "write 23", "pause 3",
                                           "read 3", "pause 3", "read 0"));
}

TEST_F(ExchangeTest, BeginsOnAnOpenedLineByDiscardingItsInput)
{
    line_.Sends("old");
    line_.Sends(RcAnswer(5), 99ms);
    exchange_.Attach(line_);
    EXPECT_THAT(line_.Steps(), ElementsAre("clear", "pause 100", "read 0"));
    EXPECT_EQ(line_.Read(3ms), "");
}

TEST_F(ExchangeTest, TakesAnAnswerThatComesInPieces)
{
    for (qsizetype at = 1; at < answer_.size(); ++at) {
        line_.AnswersInPieces({{answer_.first(at), 0ms}, {answer_.sliced(at), 7ms}});
        EXPECT_EQ(Ask(), answer_) << at;
    }
    auto const long_answer = AnswerWith(QByteArray(20000, 'x'));
    line_.AnswersInPieces({{long_answer.first(9000), 30ms}, {long_answer.sliced(9000), 900ms}});
    EXPECT_EQ(Ask(), long_answer);
}

TEST_F(ExchangeTest, GoesOnWhenAnotherLineFollowsWithinThreeMilliseconds)
{
    // The first line is taken at 3 ms, behind the pause after the request.
    line_.AnswersInPieces({{"line\n", 0ms}, {answer_, 6ms}});
    EXPECT_EQ(Ask(), "line\n" + answer_);
    line_.AnswersInPieces({{"line\n", 0ms}, {answer_, 7ms}});
    EXPECT_EQ(Ask(), "line\n");
}

TEST_F(ExchangeTest, CountsTheTimeoutInWaitsOfThreeMilliseconds)
{
    std::map<int, int> const waits{{-1, 0}, {0, 0}, {1, 1}, {3, 1}, {4, 2}, {1000, 334}};
    for (auto const& [timeout, passes] : waits) {
        ScriptedLine line;
        EXPECT_EQ(SendAndReceive(line, request_, std::chrono::milliseconds(timeout)), "");
        EXPECT_EQ(line.Now(), 13ms + passes * 3ms) << timeout;
        EXPECT_EQ(line.Lines().size(), 1U) << timeout;
    }
}

TEST_F(ExchangeTest, CountsAWaitThatEndsEarlyAsAWholeOneAndReturnsAnIncompleteAnswerInTheEnd)
{
    line_.AnswersInPieces(std::vector<ScriptedLine::Piece>(100, {"x", 1ms}));
    // The first wait takes the three bytes of the pause, each of the other 29 waits one.
    EXPECT_EQ(Ask(90ms), QByteArray(32, 'x'));
    EXPECT_LT(line_.Now(), 13ms + 90ms);

    ScriptedLine line;
    line.Answers(answer_.first(12));
    EXPECT_EQ(SendAndReceive(line, request_, 90ms), answer_.first(12));
    EXPECT_EQ(line.Now(), 13ms + 29 * 3ms) << "the first wait ended early";
}

TEST_F(ExchangeTest, WithoutALineReturnsNothingAndSendsNothing)
{
    EXPECT_EQ(exchange_.SendAndReceive(request_, 30000ms), "");
    EXPECT_EQ(exchange_.Ask({kSmpRead, 1, 0, "x"}, 30000ms).outcome, Outcome::kNoAnswer);
    exchange_.Send({kSmpWrite, 0, 5, "x"});
    exchange_.Attach(line_);
    EXPECT_TRUE(exchange_.IsAttached());
    exchange_.Detach();
    EXPECT_FALSE(exchange_.IsAttached());
    exchange_.Send({kSmpWrite, 0, 5, "x"});
    EXPECT_TRUE(line_.Lines().empty());
}

TEST_F(ExchangeTest, EveryRequestThatIsBuiltTakesTheNextSequenceNumber)
{
    exchange_.Send({kSmpWrite, 0, 5, "x"});  // not built: there is no line
    exchange_.Ask({kSmpRead, 1, 0, "x"}, 0ms);
    exchange_.Attach(line_);
    for (int i = 0; i < 256; ++i) {
        exchange_.Send({kSmpWrite, 0, 5, "x"});
    }
    exchange_.Ask({kSmpRead, 1, 0, "x"}, 0ms);
    exchange_.ResetSequence();
    exchange_.Send({kSmpWrite, 0, 5, "x"});
    for (size_t i = 0; i < 256; ++i) {
        EXPECT_EQ(line_.Request(i).sequence, (i + 1) % 256);
    }
    EXPECT_EQ(line_.Request(256).sequence, 1);
    EXPECT_EQ(line_.Request(257).sequence, 0);
}

TEST_F(ExchangeTest, JudgesAnAnswer)
{
    auto damaged = answer_;
    damaged[10] = damaged[10] == 'A' ? 'B' : 'A';
    auto const no_rc = AnswerWith(QCborMap{{u"images"_s, 1}});
    auto const nothing = AnswerWith(QByteArray());
    auto const text = AnswerWith(QCborMap{{u"rc"_s, u"5"_s}});
    using enum Outcome;
    using Row = std::tuple<char const*, QByteArray, Outcome, int32_t, FrameError>;
    for (auto const& [name, raw, outcome, error_code, frame_error] : {
             Row{"silence", {}, kNoAnswer, 0, FrameError::kNone},
             Row{"noise", "noise\n", kUnusable, 0, FrameError::kNoLine},
             Row{"damaged", damaged, kUnusable, 0, FrameError::kCheckValue},
             Row{"no payload", nothing, kUnusable, 0, FrameError::kNoPayload},
             Row{"rc 0", answer_, kSuccess, 0, FrameError::kNone},
             Row{"no rc", no_rc, kSuccess, 0, FrameError::kNone},
             Row{"rc 5", RcAnswer(5), kErrorCode, 5, FrameError::kNone},
             Row{"rc below 0", RcAnswer(-6), kErrorCode, -6, FrameError::kNone},
             Row{"rc is text", text, kSuccess, 0, FrameError::kNone},
             Row{"rc beyond 32 bits", RcAnswer(0x80000000), kSuccess, 0, FrameError::kNone},
         }) {
        ScriptedLine line;
        Exchange exchange;
        exchange.Attach(line);
        line.Answers(raw);
        auto const answer = exchange.Ask({kSmpRead, 1, 0, FromHex("bfff")}, 9ms);
        EXPECT_EQ(answer.outcome, outcome) << name;
        EXPECT_EQ(answer.error_code, error_code) << name;
        EXPECT_EQ(answer.frame_error, frame_error) << name;
        EXPECT_EQ(answer.payload, ReadFrame(raw).payload) << name;
    }
}

}  // namespace
}  // namespace mcuboot
