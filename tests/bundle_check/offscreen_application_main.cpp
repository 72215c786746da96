// Runs a test program's tests beside an application object that knows fonts and needs no display.
#include <gmock/gmock.h>

#include <QGuiApplication>

#include "tests/support/warnings.h"

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication const application(argc, argv);
    WatchForWarnings();
    return RUN_ALL_TESTS();
}
