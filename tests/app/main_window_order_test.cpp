// What the window does when signals cross: here with a real button, in every order in
// window_interleavings_test.cpp.
#include <gtest/gtest.h>

#include "tests/app/window_fixture.h"

using namespace Qt::StringLiterals;

namespace {

using MainWindowOrder = WindowTest;

}  // namespace

// A connect that takes longer than the detection waits is asked for twice. Its second answer can
// arrive after the press, and then enables the button until the update starts.
TEST_F(MainWindowOrder, AnAnswerAfterThePressDoesNotKeepTheButtonAliveDuringTheUpdate)
{
    int update = 0;
    for (auto const type : {TargetUart, TargetUsb, TargetMcubootSerial}) {
        SCOPED_TRACE(type);
        MakeWindow(type);
        ReportStatus(ConnectionStatus::Connected);
        Button().click();
        ASSERT_TRUE(WaitForCalls(u"update"_s, ++update));

        ReportStatus(ConnectionStatus::Connected);
        EXPECT_TRUE(Button().isEnabled());
        StartUpdate();
        EXPECT_FALSE(Button().isEnabled());
        Button().click();
        FinishUpdate(true);
        window_.reset();

        EXPECT_EQ(record_->Count(u"update"_s), update);
    }
}
