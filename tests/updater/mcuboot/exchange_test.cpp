// One line out, one answer in: what ends an answer, how time is counted, what is waited for.
#include <gmock/gmock.h>

#include <QElapsedTimer>
#include <algorithm>
#include <map>

#include "tests/updater/mcuboot/observed_waits.h"
#include "tests/updater/mcuboot/updater_fixture.h"

namespace {

using mcuboot::test::FromHex;
using mcuboot::test::MakeAnswer;
using mcuboot::test::MakeAnswerBody;
using mcuboot::test::ToLines;
using testing::ElementsAre;

class Exchange : public UpdaterFixture {
protected:
    void SetUp() override { ConnectUpdater(); }

    // The sequence number is the test's own here.
    QByteArray const request_ = McubootSerialUpdater::buildPacket(0, 1, 0, FromHex("bfff"), 77);
    QByteArray const answer_ = MakeAnswer(FromHex("a162726300"));
};

TEST_F(Exchange, ReturnsTheAnswerAsItCame)
{
    unit_.Answers("boot\r\n" + answer_);
    EXPECT_EQ(updater_->sendAndReceive(request_, 1000), "boot\r\n" + answer_);
    EXPECT_EQ(unit_.WaitForLines(2)[1], request_);
}

TEST_F(Exchange, WithoutAPortReturnsNothingAtOnce)
{
    updater_->disconnect();
    EXPECT_TRUE(updater_->sendAndReceive(request_, 30000).isEmpty());
}

TEST_F(Exchange, WithATimeoutBelowOneSendsAndWaitsForNoAnswer)
{
    for (auto const timeout : {0, -1}) {
        EXPECT_TRUE(updater_->sendAndReceive(request_, timeout).isEmpty());
    }
    unit_.WaitForLines(3);
}

TEST_F(Exchange, WaitsBeforeTheRequestAndBehindItAndBehindTheAnswer)
{
    unit_.Answers(answer_);
    ObservedWaits const waits;
    EXPECT_EQ(updater_->sendAndReceive(request_, 1000), answer_);
    EXPECT_EQ(request_.size(), 23);
    EXPECT_THAT(waits.steps, ElementsAre("sleep 10", "write 23", "sleep 3", "sleep 3"));
    EXPECT_EQ(waits.other_waits, 0);
}

TEST_F(Exchange, IsPrecededByAWaitWhenThePortWasJustOpened)
{
    unit_.Answers(RcAnswer(0));
    ObservedWaits const waits;
    EXPECT_TRUE(updater_->connect(unit_.PortName()));
    EXPECT_THAT(waits.steps,
                ElementsAre("sleep 100", "sleep 10", "write 23", "sleep 3", "sleep 3"));
}

TEST_F(Exchange, TakesAnAnswerSplitAtEveryPlace)
{
    ObservedWaits const waits;
    for (qsizetype at = 1; at < answer_.size(); ++at) {
        unit_.AnswersInPieces({answer_.first(at), answer_.sliced(at)});
        EXPECT_EQ(updater_->sendAndReceive(request_, 1000), answer_) << at;
    }
    // The pieces did come apart, most of them at least.
    EXPECT_GT(waits.waits_with_data, answer_.size() * 3 / 2);
}

TEST_F(Exchange, GoesOnWhenTheNextLineFollowsItsNewlineAtOnce)
{
    auto const lines = ToLines(MakeAnswerBody(FromHex("a162726300")), 10);
    auto const end = lines.indexOf('\n') + 1;
    unit_.Answers(lines.first(end));
    ObservedWaits waits;
    // The first one behind the request, the second behind the first line's newline.
    waits.on_sleep = [&] {
        if (std::ranges::count(waits.steps, "sleep 3") == 2) {
            unit_.Sends(lines.sliced(end));
        }
    };
    EXPECT_EQ(updater_->sendAndReceive(request_, 1000), lines);
}

TEST_F(Exchange, TakesALongAnswerWhole)
{
    auto const answer = MakeAnswer(QByteArray(20000, 'x'));
    std::vector<QByteArray> pieces;
    for (qsizetype at = 0; at < answer.size(); at += 3000) {
        pieces.push_back(answer.mid(at, 3000));
    }
    unit_.AnswersInPieces(pieces);
    EXPECT_EQ(updater_->sendAndReceive(request_, 5000), answer);
}

TEST_F(Exchange, ReturnsAnAnswerThatStaysIncompleteWhenTheTimeIsUp)
{
    unit_.Answers(answer_.first(12));
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(updater_->sendAndReceive(request_, 90), answer_.first(12));
    // One of the thirty waits ended early.
    EXPECT_GE(timer.elapsed(), 13 + 29 * 3);
}

TEST_F(Exchange, ReturnsNothingFromASilentUnitOnlyWhenTheTimeIsUp)
{
    unit_.StaysSilent();
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(updater_->sendAndReceive(request_, 90).isEmpty());
    EXPECT_GE(timer.elapsed(), 13 + 30 * 3);
}

TEST_F(Exchange, CountsWaitsAndNotTime)
{
    // Each piece ends the wait for it early, and yet uses up 3 ms.
    unit_.AnswersInPieces(std::vector<QByteArray>(50, "x"));
    ObservedWaits const waits;
    EXPECT_EQ(updater_->sendAndReceive(request_, 300), QByteArray(50, 'x'));
    EXPECT_TRUE(waits.CountedPasses(100)) << waits.passes;
    EXPECT_GT(waits.waits_with_data, 25);
}

TEST_F(Exchange, RoundsTheNumberOfWaitsUp)
{
    for (auto const& [timeout, passes] :
         std::map<int, int>{{-1, 0}, {0, 0}, {1, 1}, {3, 1}, {4, 2}}) {
        ObservedWaits const waits;
        EXPECT_TRUE(updater_->sendAndReceive(request_, timeout).isEmpty());
        EXPECT_TRUE(waits.CountedPasses(passes)) << waits.passes;
        EXPECT_THAT(waits.steps, ElementsAre("sleep 10", "write 23", "sleep 3")) << timeout;
    }
}

TEST_F(Exchange, EndsSoonWhenTheUnitIsPulledOut)
{
    unit_.Vanishes();
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(updater_->sendAndReceive(request_, 30000).isEmpty());
    EXPECT_LT(timer.elapsed(), 10000);
}

TEST_F(Exchange, EveryRequestTakesTheNextSequenceNumberAndTheCounterWraps)
{
    // The probe had 0.
    for (int i = 0; i < 256; ++i) {
        updater_->reset();
    }
    auto const requests = unit_.WaitForRequests(257);
    for (int i = 0; i < 257; ++i) {
        EXPECT_EQ(requests[static_cast<size_t>(i)].sequence, i % 256);
    }
}

TEST_F(Exchange, TheCounterAdvancesOnAFailureButOnlyForARequestThatIsBuilt)
{
    unit_.Answers("no answer\n").Answers(RcAnswer(0));
    EXPECT_FALSE(updater_->readImageState());
    updater_->disconnect();
    EXPECT_TRUE(updater_->sendSmpCommand(0, 1, 0, {}).isEmpty());
    updater_->reset();
    EXPECT_TRUE(updater_->connect(unit_.PortName()));
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0", "0 1 0 1", "0 1 0 2"));
}

}  // namespace
