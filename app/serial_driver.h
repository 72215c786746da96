// The macOS driver of the units' USB-to-serial adapter: the tools that manage it, their time-outs,
// and how to read the system's list of drivers. Nothing here runs a process; main_window_driver.cpp
// runs the tools and asks the user.
#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>

// The result of comparing the installed driver with the bundle's.
enum DriverVersion : int {
    DriverCurrent = 0,  // byte for byte the bundle's
    DriverMissing = 1,  // not installed, or one of the two cannot be opened
    DriverOld = 2,      // differs from the bundle's
};

// How long the window waits for each child process. It is blocked meanwhile. A process that takes
// longer is killed.
struct DriverTimeouts {
    std::chrono::milliseconds uninstall{60'000};
    std::chrono::milliseconds removal{60'000};  // includes typing a password
    std::chrono::milliseconds copy{30'000};
    std::chrono::milliseconds install_start{30'000};
    std::chrono::milliseconds install{60'000};
    std::chrono::milliseconds extension_listing{30'000};
};

// The system as driver management sees it; the defaults are the real one's.
struct DriverEnvironment {
    QString applications_dir = QStringLiteral("/Applications");
    QString osascript = QStringLiteral("osascript");
    QString cp = QStringLiteral("cp");
    QString systemextensionsctl = QStringLiteral("systemextensionsctl");
    DriverTimeouts timeouts{};
    std::chrono::milliseconds quit_delay{1000};  // from a refusal until the program quits
};

// Returns whether `listing`, the output of "systemextensionsctl list", has the driver's extension
// in the only state in which it works. Each extension has one line.
bool IsDriverEnabled(QByteArray const& listing);
