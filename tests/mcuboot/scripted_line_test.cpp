// The double itself, held against literal bytes and times.
#include "tests/mcuboot/scripted_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>

namespace mcuboot::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

QByteArray const kErase = Line("AAwCAAACAAH/Bb//um4=");

TEST(ScriptedLine, DeliversEachPieceWhenItsTimeHasCome)
{
    ScriptedLine line;
    line.Sends("old");
    line.Clear();
    line.AnswersInPieces({{"a", 2ms}, {"b", 1ms}, {"c", 5ms}});
    line.Write(kErase);
    EXPECT_EQ(line.Read(0ms), "");
    EXPECT_EQ(line.Read(3ms), "a") << "the wait ends with the first bytes";
    EXPECT_EQ(line.Now(), 2ms);
    line.Pause(6ms);
    EXPECT_EQ(line.Read(0ms), "bc") << "what came during a pause is kept";
    EXPECT_EQ(line.Read(3ms), "");
    EXPECT_EQ(line.Now(), 11ms);
    EXPECT_THAT(line.Steps(), ElementsAre("clear", "write 23", "read 0", "read 3", "pause 6",
                                          "read 0", "read 3"));
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
    EXPECT_THAT(line.Journal(), testing::Each("2 1 5 255"));
    EXPECT_EQ(RcAnswer(0), Line("AA8BAAAFAAEAAKFicmMAyZ8="));
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
