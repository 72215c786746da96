// A main window that takes its computer for a Mac, and the person before it.
#pragma once

#include "tests/app/dialog_user.h"
#include "tests/app/window_fixture.h"

class DriverTest : public WindowTest {
protected:
    DriverTest();

    // Shows the window and runs the event loop, as the program does. Gives false if the program has
    // not quit by itself in `patience`.
    bool QuitsByItself(std::chrono::milliseconds patience = std::chrono::milliseconds(kPatience));
    // Long enough to be sure that no quit is armed.
    bool GoesOn() { return !QuitsByItself(4 * environment_.driver.quit_delay); }

    DialogUser user_;
};
