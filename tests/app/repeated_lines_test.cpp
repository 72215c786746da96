// Which lines of the log are held back because they repeat themselves.
#include "app/repeated_lines.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

// What is written for these lines, one letter each.
std::vector<std::string> Filter(std::string const& letters)
{
    RepeatedLines lines;
    std::vector<std::string> written;
    for (char const letter : letters) {
        for (auto const& line : lines.Take(QString(QLatin1Char(letter)))) {
            written.push_back(line.toStdString());
        }
    }
    if (auto const rest = lines.Finish(); !rest.isEmpty()) {
        written.push_back(rest.toStdString());
    }
    return written;
}

}  // namespace

TEST(RepeatedLines, KeepsLinesThatDoNotRepeatThemselves)
{
    for (std::string const letters :
         {"", "a", "abc", "aab", "abab", "abcdeabcdeabcde", "abacada"}) {
        std::vector<std::string> all;
        for (char const letter : letters) {
            all.emplace_back(1, letter);
        }
        EXPECT_THAT(Filter(letters), ElementsAreArray(all)) << letters;
    }
}

TEST(RepeatedLines, CountsALineFromItsThirdTimeOn)
{
    auto const count = "(the line above came 3 more times)";
    EXPECT_THAT(Filter("aaaaa"), ElementsAre("a", "a", count));
    EXPECT_THAT(Filter("aaaaab"), ElementsAre("a", "a", count, "b"));
    EXPECT_THAT(Filter("aabb"), ElementsAre("a", "a", "b", "b")) << "nothing was held back";
}

TEST(RepeatedLines, CountsTheLinesOfAGroupFromItsThirdTimeOn)
{
    EXPECT_THAT(Filter("abababac"),
                ElementsAre("a", "b", "a", "b", "(the 2 lines above went on: 3 more lines)", "c"));
    EXPECT_THAT(Filter("ababa"),
                ElementsAre("a", "b", "a", "b", "(the 2 lines above went on: 1 more line)"));
    EXPECT_THAT(Filter("xabcdabcdabcd"), ElementsAre("x", "a", "b", "c", "d", "a", "b", "c", "d",
                                                     "(the 4 lines above went on: 4 more lines)"));
}

TEST(RepeatedLines, RecognisesTheNextRepetitionAnew)
{
    EXPECT_THAT(Filter("aaabaaa"), ElementsAre("a", "a", "(the line above came 1 more time)", "b",
                                               "a", "a", "(the line above came 1 more time)"));
}
