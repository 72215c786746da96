// Runs a test program's tests beside an application object, which widgets need, in
// the style that the program itself sets.
#include <gmock/gmock.h>

#include <QApplication>

#include "tests/support/warnings.h"

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    QApplication const application(argc, argv);
    QApplication::setStyle(QStringLiteral("fusion"));
    WatchForWarnings();
    return RUN_ALL_TESTS();
}
