// A real main window over a fake backend, with its own resource directory and list of serial ports.
#pragma once

#include <gtest/gtest.h>

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>

#include "app/main_window.h"
#include "tests/app/driver_stand_ins.h"
#include "tests/config/ini_file.h"
#include "tests/support/fake_backend.h"

class WindowTest : public testing::Test {
protected:
    static constexpr int kPatience = 15'000;  // milliseconds
    static constexpr std::chrono::milliseconds kNever{3'600'000};
    // U+2014 is the em dash.
    static inline QString const kErrorText =
        QStringLiteral("Error connecting to device \u2014 Disconnect device and repeat step 1-3");

    WindowTest() { record_->answers = false; }

    // Replaces the window before it. Its configuration is put into ini_ first.
    MainWindow& MakeWindow(targetInterfaceType type = TargetUart);

    // Calls `emit_signals` on the backend's thread and returns when the window has handled them.
    void FromBackend(std::function<void(FirmwareUpdaterBase&)> const& emit_signals);
    void ReportStatus(ConnectionStatus status)
    {
        FromBackend([status](auto& backend) { Q_EMIT backend.UpdateConnectionStatus(status); });
    }
    void ReportProgress(int percent)
    {
        FromBackend([percent](auto& backend) { Q_EMIT backend.ProgressUpdate(percent); });
    }
    void FinishUpdate(bool status)
    {
        FromBackend([status](auto& backend) { Q_EMIT backend.UpdateFinished(status); });
    }
    void StartUpdate() { FromBackend(&FirmwareUpdaterBase::UpdateStarted); }
    void StartErase() { FromBackend(&FirmwareUpdaterBase::EraseStarted); }
    void FinishErase() { FromBackend(&FirmwareUpdaterBase::EraseFinished); }

    bool WaitForCalls(QString const& beginning, qsizetype count);
    bool WaitForLooks(int count);  // at the list of ports
    bool WaitUntilReady();         // a unit is connected

    // Whether a tool that the window has started still runs, or is a zombie.
    static bool HasChildProcess();

    // Throws if there is none of that name.
    template <typename Widget>
    Widget& Find(char const* name)
    {
        auto* const widget = window_->findChild<Widget*>(QString::fromLatin1(name));
        if (widget == nullptr) {
            throw std::runtime_error(std::string("no widget named ") + name);
        }
        return *widget;
    }
    QLabel& Label(char const* name) { return Find<QLabel>(name); }
    QPushButton& Button() { return Find<QPushButton>("updateButton"); }
    QProgressBar& Bar() { return Find<QProgressBar>("progressBar"); }

    struct Shown {
        QString button_text;
        bool button_enabled;
        QString button_style;
        int bar_value;
        QString bar_format;

        bool operator==(Shown const&) const = default;
        friend void PrintTo(Shown const& shown, std::ostream* out)
        {
            *out << '"' << shown.button_text.toStdString() << "\" "
                 << (shown.button_enabled ? "enabled, " : "disabled, ")
                 << shown.button_style.toStdString() << ", bar at " << shown.bar_value << " \""
                 << shown.bar_format.toStdString() << '"';
        }
    };
    Shown GetShown();

    IniFile ini_{""};
    // No test ever touches a real driver, whichever system its window runs on.
    DriverStandIns driver_{ini_.Directory()};
    QString dfu_util_ = QStringLiteral("/nowhere/dfu-util");
    QList<SerialPortEntry> ports_;  // that the window finds
    int looks_ = 0;                 // how often it has looked
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
