// A main window whose computer is a Mac, and its user.
#pragma once

#include "tests/app/dialog_user.h"
#include "tests/app/window_fixture.h"

class DriverTest : public WindowTest {
protected:
    DriverTest();

    // Shows the window and runs the event loop, as the program does. Returns false if the program
    // does not quit by itself within `patience`.
    bool QuitsByItself(std::chrono::milliseconds patience = std::chrono::milliseconds(kPatience));
    // Waits longer than the delay of any quit that was requested before.
    bool GoesOn() { return !QuitsByItself(3 * environment_.driver.quit_delay); }

    DialogUser user_;
};
