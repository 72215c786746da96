// A real main window over a fake backend, with a resource directory and a list of serial ports
// of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "app/main_window.h"
#include "tests/app/driver_stand_ins.h"
#include "tests/app/ini_file.h"
#include "tests/support/fake_backend.h"

class WindowTest : public testing::Test {
protected:
    WindowTest() { record_->answers = false; }

    static constexpr int kPatience = 15'000;  // milliseconds
    static constexpr std::chrono::milliseconds kNever{3'600'000};

    // Replaces the window before it. What it reads is put into ini_ first.
    MainWindow& MakeWindow(targetInterfaceType type = TargetUart);

    // Runs `signal` on the backend's thread; what follows from it arrives queued.
    void FromBackend(std::function<void(FirmwareUpdaterBase&)> signal);
    void ReportStatus(ConnectionStatus status);
    // Like FromBackend, and returns when the window has handled it.
    void FromBackendAndWait(std::function<void(FirmwareUpdaterBase&)> const& signal);

    bool WaitForCalls(QString const& beginning, qsizetype count);
    bool WaitForLooks(int count);  // at the list of ports

    QLabel& Label(char const* name);
    QPushButton& Button();
    QProgressBar& Bar();

    // button text, enabled, style, bar value, bar text
    struct Shown {
        QString button_text;
        bool button_enabled;
        QString button_style;
        int value;
        QString format;

        bool operator==(Shown const&) const = default;
    };
    Shown GetShown();

    IniFile ini_{""};
    // Nobody's real driver is touched, whichever system a test has the window run on.
    DriverStandIns driver_{ini_.Directory()};
    QString dfu_util_ = QStringLiteral("/nowhere/dfu-util");
    QList<SerialPortEntry> ports_;  // what the window finds
    int looks_ = 0;                 // how often it looked
    WindowEnvironment environment_{.list_serial_ports =
                                       [this] {
                                           ++looks_;
                                           return ports_;
                                       },
                                   .product_type = QStringLiteral("debian"),
                                   .intervals = {.first = kNever},
                                   .driver = driver_.Environment()};
    std::shared_ptr<BackendRecord> record_ = std::make_shared<BackendRecord>();
    FakeBackend* backend_ = nullptr;  // owned by the window
    std::unique_ptr<MainWindow> window_;
};
