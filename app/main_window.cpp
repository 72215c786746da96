#include "app/main_window.h"

#include <QFile>
#include <QIcon>
#include <utility>

#include "app/accessible_content.h"
#include "ui_main_window.h"

// NOLINTNEXTLINE(performance-unnecessary-value-param): a QDir cannot be moved into place
MainWindow::MainWindow(QDir resourceDir, QSettings const& settings, QString dfuUtilPath,
                       targetInterfaceType type, std::unique_ptr<FirmwareUpdaterBase> updater,
                       WindowEnvironment environment)
    : ui_(std::make_unique<Ui::MainWindow>()),
      updater_(std::move(updater)),
      worker_thread_(std::make_unique<QThread>()),
      resource_dir_(resourceDir),
      type_(type),
      dfu_util_path_(std::move(dfuUtilPath)),
      environment_(std::move(environment))
{
    // On other systems the icon comes with the bundle or the desktop entry.
    if (environment_.IsSystem(QLatin1String("windows"))) {
        setWindowIcon(QIcon(resource_dir_.filePath(QStringLiteral("AppIcon.ico"))));
    }
    SetupDfuUpdater();

    InstallAccessibleContent();
    ui_->setupUi(this);
    ImportFonts();
    SetupWindowStyle(settings);
    SetupInstructionsLabel(settings);
    SetupUpdateButton();
    SetupProgressBar();
    Apply(WindowEvent::UnitDisconnected);

    products_ = ReadProducts(settings);
    // Other systems include the driver.
    if (environment_.IsSystem(QLatin1String("macos")) && !PrepareDriver()) {
        return;
    }
    device_ids_ = ReadDeviceIds(settings);
    CheckAgain(environment_.intervals.first, Qt::PreciseTimer);
}

MainWindow::~MainWindow()
{
    worker_thread_->quit();
    worker_thread_->wait();
    worker_thread_.reset();
    updater_.reset();
}

void MainWindow::SetupDfuUpdater()
{
    updater_->moveToThread(worker_thread_.get());
    worker_thread_->start(QThread::InheritPriority);

    auto* const updater = updater_.get();
    connect(this, &MainWindow::UpdateDevice, updater, &FirmwareUpdaterBase::onStartUpdate);
    connect(updater, &FirmwareUpdaterBase::UpdateStarted, this, &MainWindow::onWorkerThreadStarted);
    connect(updater, &FirmwareUpdaterBase::UpdateFinished, this,
            &MainWindow::onWorkerThreadFinished);
    connect(updater, &FirmwareUpdaterBase::UpdateConnectionStatus, this,
            &MainWindow::onConnectionStatus);
    connect(this, &MainWindow::ConnectToDevice, updater, &FirmwareUpdaterBase::onConnectToDevice);
    connect(this, &MainWindow::DisconnectFromDevice, updater,
            &FirmwareUpdaterBase::onDisconnectDevice);
}

QMap<QString, QByteArray> MainWindow::readBinaries() const
{
    QMap<QString, QByteArray> binaries;
    for (auto const& name : products_.keys()) {
        QFile file(resource_dir_.filePath(name + QStringLiteral(".bin")));
        auto const opened = file.open(QIODevice::ReadOnly);
        binaries[name] = opened ? file.readAll() : QByteArray();
    }
    return binaries;
}
