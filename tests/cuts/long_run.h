// Whether a test runs in its long form. ./check --all asks for that in its run of the release
// build; every other run takes a sample.
#pragma once

#include <QtGlobal>

namespace cuts {

inline bool IsLongRun()
{
    return qEnvironmentVariableIsSet("FW_LONG_TESTS");
}

}  // namespace cuts
