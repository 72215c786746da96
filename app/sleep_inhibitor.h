// Keeps the computer awake while an update runs: a unit whose computer falls asleep is left
// half-written. Only ever an attempt: where the system offers no such thing, nothing happens.
#pragma once

#include <QString>
#include <memory>

// GUI thread only. No operation waits for an answer or for a service: whether the request is heard
// shows later, if at all.
class SleepInhibitor {
public:
    virtual ~SleepInhibitor() = default;  // releases

    virtual void Hold() = 0;  // no effect while held
    virtual void Release() = 0;
};

// For macOS: a child process holds the system awake, and ends by itself should this one be gone.
// Releasing kills it and waits, for a second at most, until it is gone. caffeinate: the tool's
// path.
std::unique_ptr<SleepInhibitor> MakeCaffeinateInhibitor(QString const& caffeinate);

// For the desktops of Linux: asks the desktop portal, and where there is none the older service of
// power managers, over a connection of its own to the session's bus at `bus_address`. The services
// end what was asked for as soon as that connection ends.
std::unique_ptr<SleepInhibitor> MakeDesktopInhibitor(QString const& bus_address);

// The one for this system, as QSysInfo::productType() names it; none where there is nobody to ask.
// bus_address: the variable DBUS_SESSION_BUS_ADDRESS.
std::unique_ptr<SleepInhibitor> MakeSleepInhibitor(
    QString const& product_type, QString const& bus_address,
    QString const& caffeinate = QStringLiteral("/usr/bin/caffeinate"));
