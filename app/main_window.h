// The program's one window: one button, one progress bar whose text is the status line. Owns the
// backend and the worker thread on which it lives; the two talk in queued signals only.
//
// Its concerns stand in files of their own: main_window.cpp builds it, main_window_workflow.cpp
// turns events into what it shows, main_window_detection.cpp looks for a unit,
// main_window_driver.cpp sees to the serial driver on macOS, main_window_style.cpp gives the window
// its fonts, texts and background.
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
    // `settings` is read during the construction only. On macOS the construction may ask the user
    // about the serial driver and run its tools, for minutes. With a driver that is missing or not
    // enabled in the end the window looks for no unit. Then, and after a refusal or a failed
    // removal, the program ends soon after its event loop has begun.
    MainWindow(QDir resourceDir, QSettings const& settings, QString dfuUtilPath,
               targetInterfaceType type, std::unique_ptr<FirmwareUpdaterBase> updater,
               WindowEnvironment environment = WindowEnvironment::System());
    // Waits, without limit, for an update that still runs.
    ~MainWindow() override;

    // The content of NAME.bin in the resource directory for every known product; empty where that
    // file cannot be opened. The update itself writes the file that config.ini names.
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

    void Show(WindowEvent event);
    QStringList GetUsbDfuDevices();
    Detection LookForUnit();
    void LogWhenChanged(QStringList const& attached);
    void CheckAgain(std::chrono::milliseconds delay, Qt::TimerType type);

    // Whether the construction may go on.
    bool PrepareDriver();
    void ReplaceDriver();
    int CheckDriverVersion() const;  // a DriverVersion
    // Whether the driver was asked to go and its removal ended in time.
    bool UninstallDriver() const;
    // Always true: failures are logged, and the driver's state afterwards decides.
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
    QStringList attached_;  // as logged last
    bool unit_ready_ = false;
    Fonts fonts_;
    WindowEnvironment environment_;
};
