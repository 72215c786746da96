// The double itself, held against bytes and times that were written down by hand.
#include "tests/mcuboot/scripted_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>

namespace mcuboot::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

QByteArray const kErase =
    "\x06\x09"
    "AAwCAAACAAH/Bb//um4=\n";

TEST(ScriptedLine, StampsAnAnswerAsAUnitDoes)
{
    EXPECT_EQ(RcAnswer(0),
              "\x06\x09"
              "AA8BAAAFAAEAAKFicmMAyZ8=\n");
}

TEST(ScriptedLine, DeliversEachPieceWhenItsTimeHasCome)
{
    ScriptedLine line;
    line.AnswersInPieces({{"a", 2ms}, {"b", 1ms}, {"c", 5ms}});
    line.Write(kErase);
    EXPECT_EQ(line.Read(0ms), "");
    EXPECT_EQ(line.Read(3ms), "a") << "the wait ends with the first bytes";
    EXPECT_EQ(line.Now(), 2ms);
    line.Pause(6ms);
    EXPECT_EQ(line.Read(0ms), "bc") << "what came during a pause is kept";
    EXPECT_EQ(line.Read(3ms), "");
    EXPECT_EQ(line.Now(), 11ms);
    EXPECT_THAT(line.Steps(),
                ElementsAre("write 23", "read 0", "read 3", "pause 6", "read 0", "read 3"));
}

TEST(ScriptedLine, ClearDiscardsWhatIsThereAndNotWhatIsStillToCome)
{
    ScriptedLine line;
    line.Sends("old");
    line.Sends("new", 1ms);
    line.Clear();
    EXPECT_EQ(line.Read(3ms), "new");
}

TEST(ScriptedLine, AnswersEachLineByTheScriptAndThenAlwaysTheSame)
{
    ScriptedLine line;
    line.Answers("1").StaysSilent();
    line.AlwaysAnswers("x");
    std::vector<QByteArray> answers;
    for (int i = 0; i < 4; ++i) {
        line.Write(kErase);
        answers.push_back(line.Read(0ms));
    }
    EXPECT_THAT(answers, ElementsAre("1", "", "x", "x"));
    EXPECT_THAT(line.Journal(), ElementsAre("2 1 5 255", "2 1 5 255", "2 1 5 255", "2 1 5 255"));
}

TEST(ScriptedLine, FailsTheTestForAMissingRequestABadOneAndAnUnplayedScript)
{
    EXPECT_NONFATAL_FAILURE(ScriptedLine().Request(0), "was never sent");
    EXPECT_NONFATAL_FAILURE(ScriptedLine().Answers("x"), "never sent");
    auto const write_bad = [](QByteArray const& bytes) {
        ScriptedLine line;
        line.Write(bytes);
        line.Journal();
    };
    EXPECT_NONFATAL_FAILURE(write_bad(kErase + "x"), "base64");
    EXPECT_NONFATAL_FAILURE(write_bad("x"), "marker");
}

}  // namespace
}  // namespace mcuboot::test
