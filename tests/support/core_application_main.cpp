// Runs a test program's tests beside an application object, which Qt's event
// loops, processes and ports need.
#include <gmock/gmock.h>

#include <QCoreApplication>

#include "tests/support/warnings.h"

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    QCoreApplication const application(argc, argv);
    WatchForWarnings();
    return RUN_ALL_TESTS();
}
