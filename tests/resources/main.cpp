// Runs the tests of the window's resources: fonts and widgets need an application object.
#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    QApplication::setStyle(QStringLiteral("fusion"));
    return RUN_ALL_TESTS();
}
