// Child processes need an application object; no window does.
#include <gtest/gtest.h>

#include <QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
