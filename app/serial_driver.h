// The macOS driver of the units' USB-to-serial adapter, as far as it can be told without running
// anything: where it is, what manages it and for how long, and what the system says of it. Running
// the tools and asking the user are the window's (main_window_driver.cpp).
#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>

// What the comparison of the installed driver with the bundle's gives.
enum DriverVersion : int {
    DriverCurrent = 0,  // byte for byte the bundle's
    DriverMissing = 1,  // not installed, or one of the two cannot be opened
    DriverOld = 2,      // another than the bundle's
};

// How long the window waits for each child process; it does nothing else meanwhile. A process that
// outlives its time is killed.
struct DriverTimeouts {
    std::chrono::milliseconds uninstall{60'000};
    std::chrono::milliseconds removal{60'000};  // the user types a password in it
    std::chrono::milliseconds copy{30'000};
    std::chrono::milliseconds install_start{30'000};
    std::chrono::milliseconds install{60'000};
    std::chrono::milliseconds extension_listing{30'000};
};

// What driver management needs of the system; the defaults are the real ones.
struct DriverEnvironment {
    QString applications_dir = QStringLiteral("/Applications");
    QString osascript = QStringLiteral("osascript");
    QString cp = QStringLiteral("cp");
    QString systemextensionsctl = QStringLiteral("systemextensionsctl");
    DriverTimeouts timeouts{};
    std::chrono::milliseconds quit_delay{1000};  // from a refusal to the end of the program
};

// Whether `listing`, the output of "systemextensionsctl list", names the driver's extension in the
// one state in which it works. Each extension is one line of it.
bool IsDriverEnabled(QByteArray const& listing);
