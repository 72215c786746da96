// What the program's own log says about its window: which events it has shown, in the order in
// which its GUI thread took them. Pure. The order is exact, so a contradiction in it is an error of
// the program's and not a matter of time.
#pragma once

#include <QByteArray>
#include <QString>
#include <map>

#include "app/window_state.h"

struct WindowLog {
    std::map<WindowEvent, int> counts;  // how often each event was shown
    int events = 0;                     // all of them
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

    int Count(WindowEvent event) const
    {
        auto const found = counts.find(event);
        return found == counts.end() ? 0 : found->second;
    }
    int Requested() const { return Count(WindowEvent::UpdateRequested); }
    int Started() const { return Count(WindowEvent::UpdateStarted); }
    int Ended() const
    {
        return Count(WindowEvent::UpdateSucceeded) + Count(WindowEvent::UpdateFailed);
    }
    bool IsUpdating() const { return Started() > Ended(); }
    // An update runs, or was asked for and is still to come.
    bool IsBusy() const { return Requested() > Ended(); }
};

// `log` begins with the start of one run of the program.
WindowLog ReadWindowLog(QByteArray const& log, targetInterfaceType type);
