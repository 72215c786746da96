// The tests draw the program's window themselves to know what it must look like, so they are an
// application too.

#include <gtest/gtest.h>

#include <QApplication>

#include "tests/end_to_end/window_reader.h"
#include "tests/support/warnings.h"

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    QApplication const application(argc, argv);
    DrawAsTheProgramDoes();
    WatchForWarnings();
    return RUN_ALL_TESTS();
}
