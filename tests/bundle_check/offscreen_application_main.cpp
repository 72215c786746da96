// Runs a test program's tests beside an application object that draws windows and needs no display.
#include <gmock/gmock.h>

#include <QApplication>

#include "tests/support/warnings.h"

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication const application(argc, argv);
    WatchForWarnings();
    return RUN_ALL_TESTS();
}
