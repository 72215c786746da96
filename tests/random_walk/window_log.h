// What the program's own log says about its window: which events it has shown, in the order in
// which its GUI thread took them. Pure. The order is exact, so a contradiction in it is an error of
// the program's and not a matter of time.
#pragma once

#include <QByteArray>
#include <QString>

#include "app/window_state.h"

struct WindowLog {
    // How often each of these events was shown.
    int requested = 0;
    int started = 0;
    int succeeded = 0;
    int failed = 0;
    int connected = 0;
    int refused = 0;
    int events = 0;  // all of them, others included
    QString last_event;

    bool unit_ready = false;
    // A look may have found two units while none was ready: the search has ended for this run.
    bool may_have_stopped_looking = false;
    // The port that could not be opened, which ended the process; empty if there is none.
    QString unopenable_port;
    // What the events leave in the window, without the progress that an update reports.
    WindowChange shown;
    // The first thing that must not be; empty if there is none.
    QString contradiction;

    int Ended() const { return succeeded + failed; }
    bool IsUpdating() const { return started > Ended(); }
    // An update runs, or was asked for and is still to come.
    bool IsBusy() const { return requested > Ended(); }
};

// `log` begins with the start of one run of the program.
WindowLog ReadWindowLog(QByteArray const& log, targetInterfaceType type);
