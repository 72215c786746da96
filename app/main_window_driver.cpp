// Installs, replaces and checks the serial driver (macOS), before the window looks for a unit. The
// user is asked first. The program quits on a refusal, or if the driver is not enabled in the end.
//
// A step fails only if its process cannot be started or does not end in time. Exit codes are
// ignored, so a cancelled password box counts as a removal: only the enabled check decides.

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QMessageBox>
#include <QProcess>
#include <QTimer>

#include "app/main_window.h"
#include "config/bundle_paths.h"
#include "modules/stm32_updater/child_process.h"

namespace {

// The only text that reaches a shell. It runs with administrator rights, so it is constant.
constexpr auto kRemovalScript =
    "do shell script \"rm -rf /Applications/CP210xVCPDriver.app\" with administrator privileges";

// The SHA-256 of the file; empty if it cannot be read to its end.
QByteArray GetDigest(QFile& file)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    // addData() reports success for a zero-sized file even after a read error.
    bool const is_read = hash.addData(&file) && file.error() == QFileDevice::NoError;
    return is_read ? hash.result() : QByteArray();
}

void LogFailure(char const* failure, QProcess const& process)
{
    qDebug().noquote().nospace() << failure << " with error: " << process.errorString();
}

bool WaitForEnd(QProcess& process, std::chrono::milliseconds timeout, char const* failure)
{
    bool const ended = process.waitForFinished(static_cast<int>(timeout.count()));
    if (!ended) {
        LogFailure(failure, process);
    }
    return ended;
}

bool Run(QString const& program, QStringList const& arguments, std::chrono::milliseconds timeout,
         char const* failure)
{
    auto const process = stm32_updater::MakeChildProcess();
    process->start(program, arguments, QIODevice::ReadWrite);
    return WaitForEnd(*process, timeout, failure);
}

}  // namespace

bool MainWindow::PrepareDriver()
{
    auto const version = CheckDriverVersion();
    if (version == DriverOld) {
        ReplaceDriver();
    } else if (version == DriverMissing) {
        if (!AskForConsent(
                QStringLiteral("No driver detected"),
                QStringLiteral("No driver is installed. Do you want to proceed with the "
                               "installation of the driver? (you will be prompted for your "
                               "password)"))) {
            QuitSoon();
            return false;
        }
        InstallDriver();
    }

    QCoreApplication::processEvents();
    if (CheckDriverEnabled()) {
        return true;
    }
    QMessageBox::information(
        this, QStringLiteral("Driver Status"),
        QStringLiteral("Driver not enabled. To enable open System Settings -> Security & Privacy "
                       "and click allow for CP210xVCPDriver"));
    QuitSoon();
    return false;
}

void MainWindow::ReplaceDriver()
{
    if (!AskForConsent(QStringLiteral("Old driver detected"),
                       QStringLiteral("An old version of the driver is installed. Do you want to "
                                      "proceed with the installation of the new driver? (you will "
                                      "be prompted for your password)"))) {
        QuitSoon();
        return;
    }
    if (!UninstallDriver()) {
        QuitSoon();
    }
    // The driver is installed even after a failed removal, which may have left none at all.
    InstallDriver();
}

int MainWindow::CheckDriverVersion() const
{
    auto const paths = GetDriverPaths(environment_.driver.applications_dir, resource_dir_);
    if (!QFileInfo::exists(paths.installed_app)) {
        return DriverMissing;
    }
    QFile installed(paths.installed_executable);
    QFile bundled(paths.bundled_executable);
    if (!installed.open(QIODevice::ReadOnly) || !bundled.open(QIODevice::ReadOnly)) {
        return DriverMissing;
    }
    return GetDigest(installed) == GetDigest(bundled) ? DriverCurrent : DriverOld;
}

bool MainWindow::UninstallDriver() const
{
    auto const& driver = environment_.driver;
    auto const paths = GetDriverPaths(driver.applications_dir, resource_dir_);
    if (!Run(paths.installed_executable, {QStringLiteral("uninstall")}, driver.timeouts.uninstall,
             "Uninstall failed")) {
        return false;
    }
    return Run(driver.osascript, {QStringLiteral("-e"), QString::fromLatin1(kRemovalScript)},
               driver.timeouts.removal, "Removing old driver failed");
}

bool MainWindow::InstallDriver() const
{
    auto const& driver = environment_.driver;
    auto const paths = GetDriverPaths(driver.applications_dir, resource_dir_);
    Run(driver.cp, {QStringLiteral("-R"), paths.bundled_app, paths.installed_app},
        driver.timeouts.copy, "Copy failed");

    auto const install = stm32_updater::MakeChildProcess();
    install->start(paths.installed_executable, {QStringLiteral("install")}, QIODevice::ReadWrite);
    if (!install->waitForStarted(static_cast<int>(driver.timeouts.install_start.count()))) {
        LogFailure("Install failed to start", *install);
    }
    WaitForEnd(*install, driver.timeouts.install, "Install failed");
    return true;
}

bool MainWindow::CheckDriverEnabled() const
{
    auto const& driver = environment_.driver;
    auto const list = stm32_updater::MakeChildProcess();
    list->start(driver.systemextensionsctl, {QStringLiteral("list")}, QIODevice::ReadWrite);
    list->waitForFinished(static_cast<int>(driver.timeouts.extension_listing.count()));
    stm32_updater::KillIfRunning(*list);
    return IsDriverEnabled(list->readAllStandardOutput());
}

bool MainWindow::AskForConsent(QString const& title, QString const& question)
{
    return QMessageBox::question(this, title, question, QMessageBox::Yes | QMessageBox::No) ==
           QMessageBox::Yes;
}

void MainWindow::QuitSoon()
{
    QTimer::singleShot(environment_.driver.quit_delay, this, [this] {
        QCoreApplication::quit();
        // quit() has no effect before the program's event loop runs, which a dialog or a slow
        // installation delays. It is retried until it takes effect.
        QuitSoon();
    });
}
