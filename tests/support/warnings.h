// Fails a test when Qt or the code under test logs a warning, or anything worse, that it did not
// expect. A CollectedLog takes what is logged while it lives; the test looks at that itself.
#pragma once

#include <gmock/gmock.h>

#include <string>

// For a main function: from now on each test is watched, and what it logs still goes to stderr.
void WatchForWarnings();

// The current test must log one warning whose text matches (a plain string must be equal).
void ExpectWarning(testing::Matcher<std::string const&> const& text);
