// The serial port needs an application object and its event dispatcher.
#include <gmock/gmock.h>

#include <QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
