// Test programs of this folder need an event loop's surroundings before the first test runs.
#include <gtest/gtest.h>

#include <QCoreApplication>

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    QCoreApplication const application(argc, argv);
    return RUN_ALL_TESTS();
}
