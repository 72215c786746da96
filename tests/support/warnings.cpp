#include "tests/support/warnings.h"

#include <gtest/gtest.h>

#include <QString>
#include <QtGlobal>
#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace {

QtMessageHandler g_default_handler = nullptr;
// Any thread may log.
std::mutex g_mutex;
std::vector<std::string> g_warnings;
std::vector<testing::Matcher<std::string const&>> g_expected;

void TakeMessage(QtMsgType type, QMessageLogContext const& context, QString const& message)
{
    g_default_handler(type, context, message);
    auto text = message.toStdString();
    if (type == QtDebugMsg || type == QtInfoMsg) {
        return;
    }
    std::lock_guard const lock(g_mutex);
    g_warnings.push_back(std::move(text));
}

// Compares what came since the last call with what was expected, and forgets both.
void CheckWarnings()
{
    std::lock_guard const lock(g_mutex);
    auto const warnings = std::exchange(g_warnings, {});
    auto expected = std::exchange(g_expected, {});
    for (auto const& warning : warnings) {
        auto const match = std::ranges::find_if(
            expected, [&](auto const& matcher) { return matcher.Matches(warning); });
        if (match == expected.end()) {
            ADD_FAILURE() << "unexpected warning in the log: " << warning;
        } else {
            expected.erase(match);
        }
    }
    for (auto const& matcher : expected) {
        ADD_FAILURE() << "missing warning in the log: "
                      << testing::DescribeMatcher<std::string const&>(matcher);
    }
}

class WarningListener : public testing::EmptyTestEventListener {
    void OnTestEnd(testing::TestInfo const& /*test*/) override { CheckWarnings(); }
    // For what was logged after the last test, by the clean-up of its suite.
    void OnTestIterationEnd(testing::UnitTest const& /*all*/, int /*iteration*/) override
    {
        CheckWarnings();
    }
};

}  // namespace

void WatchForWarnings()
{
    g_default_handler = qInstallMessageHandler(&TakeMessage);
    // GoogleTest deletes it.
    testing::UnitTest::GetInstance()->listeners().Append(new WarningListener);
}

void ExpectWarning(testing::Matcher<std::string const&> const& text)
{
    std::lock_guard const lock(g_mutex);
    g_expected.push_back(text);
}
