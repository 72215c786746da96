// Runs the tests of the program: widgets need an application object, and the style that the program
// itself sets.
#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const QApplication application(argc, argv);
    QApplication::setStyle(QStringLiteral("fusion"));
    return RUN_ALL_TESTS();
}
