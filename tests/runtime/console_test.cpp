#include "runtime/console.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string last_heard;

void Listen(std::string_view text)
{
    last_heard += text;
}

TEST(Console, PrintsTheTextAsItStands)
{
    testing::internal::CaptureStdout();
    kelvane::PrintToConsole("\n{} %s");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n{} %s");
}

TEST(Console, HandsTheTextToItsListenerUntilThatIsTakenAway)
{
    last_heard.clear();
    testing::internal::CaptureStdout();
    kelvane::SetConsoleListener(Listen);
    kelvane::PrintToConsole("one");
    kelvane::SetConsoleListener(nullptr);
    kelvane::PrintToConsole("two");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "onetwo");
    EXPECT_EQ(last_heard, "one");
}

}  // namespace
