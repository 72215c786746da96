// Runs a test program's tests beside an application object, which widgets need, in
// the style that the program itself sets.
#include <gmock/gmock.h>

#include <QApplication>

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    QApplication const application(argc, argv);
    QApplication::setStyle(QStringLiteral("fusion"));
    return RUN_ALL_TESTS();
}
