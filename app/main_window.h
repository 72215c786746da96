// The program's only window: one button, and one progress bar whose text is the status line. It
// owns the backend and the worker thread on which the backend lives; the two exchange queued
// signals only.
//
// The class has one source file for each task: main_window.cpp builds the window,
// main_window_workflow.cpp shows the course of an update, main_window_detection.cpp looks for a
// unit, main_window_driver.cpp manages the serial driver on macOS, and main_window_style.cpp sets
// fonts, texts and background.
#pragma once

#include <QByteArray>
#include <QDir>
#include <QFont>
#include <QList>
#include <QMainWindow>
#include <QMap>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QThread>
#include <cstdint>
#include <memory>

#include "app/window_environment.h"
#include "app/window_state.h"
#include "config/startup_config.h"
#include "updater/firmware_updater_base.h"

namespace Ui {
class MainWindow;
}

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // `settings` is read during construction only. On macOS the constructor may ask the user about
    // the serial driver and run its tools, which can take minutes. If the driver is still missing
    // or not enabled after that, the window does not look for units. In this case, and after a
    // refusal or a failed removal, the program quits soon after its event loop has started.
    MainWindow(QDir resourceDir, QSettings const& settings, QString dfuUtilPath,
               targetInterfaceType type, std::unique_ptr<FirmwareUpdaterBase> updater,
               WindowEnvironment environment = WindowEnvironment::System());
    // Waits, without a time-out, for an update that is still running.
    ~MainWindow() override;

    // The content of NAME.bin in the resource directory for every known product, empty where that
    // file cannot be opened. An update does not use it: it writes the file that config.ini names.
    QMap<QString, QByteArray> readBinaries() const;

Q_SIGNALS:
    void UpdateDevice();
    void ProgressStart();
    void ConnectToDevice(QString const& port_name, QList<uint8_t> device_ids, bool const& verify);
    void DisconnectFromDevice();

public Q_SLOTS:
    void onUpdateButtonClicked();
    void onWorkerThreadStarted();
    void onWorkerThreadFinished(bool status);
    void onCheckForUnit();
    void onConnectionStatus(ConnectionStatus status);
    void onEraseStarted();
    void onEraseFinished();

private:
    struct Fonts {
        QFont regular_10, regular_12, regular_16, regular_20;
        QFont bold_10, bold_12, bold_16, bold_20;
    };

    void SetupDfuUpdater();
    void ImportFonts();
    void SetupWindowStyle(QSettings const& settings);
    void SetupInstructionsLabel(QSettings const& settings);
    void SetupTypeLabel(QString const& fw_target_type);
    void SetupUpdateButton();
    void SetupProgressBar();

    void Show(WindowEvent event);   // and logs it
    void Apply(WindowEvent event);  // copies its row of window_state.h to the widgets
    QStringList GetUsbDfuDevices();
    Detection LookForUnit();
    void LogWhenChanged(QStringList const& attached);
    void CheckAgain(std::chrono::milliseconds delay, Qt::TimerType type);

    // Returns false if the window must not look for units.
    bool PrepareDriver();
    void ReplaceDriver();
    int CheckDriverVersion() const;  // a DriverVersion
    // Returns whether the driver's own uninstallation and its removal both ended in time.
    bool UninstallDriver() const;
    // Always returns true: failures are only logged, and the driver's state afterwards decides.
    bool InstallDriver() const;
    bool CheckDriverEnabled() const;
    bool AskForConsent(QString const& title, QString const& question);
    void QuitSoon();

    std::unique_ptr<Ui::MainWindow> ui_;
    std::unique_ptr<FirmwareUpdaterBase> updater_;
    std::unique_ptr<QThread> worker_thread_;
    QDir resource_dir_;
    targetInterfaceType type_;
    QString dfu_util_path_;
    QMap<QString, uint32_t> products_;
    QList<uint8_t> device_ids_;
    QString current_port_;
    QStringList attached_;  // what was logged last
    bool unit_ready_ = false;
    Fonts fonts_;
    WindowEnvironment environment_;
};
