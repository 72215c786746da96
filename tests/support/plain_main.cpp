// Runs a test program's tests.
#include <gmock/gmock.h>

#include "tests/support/warnings.h"

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    WatchForWarnings();
    return RUN_ALL_TESTS();
}
