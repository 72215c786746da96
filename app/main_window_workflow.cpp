// What the window shows during an update: a slot copies a row of window_state.h to the widgets.

#include <QDebug>

#include "app/main_window.h"
#include "ui_main_window.h"

void MainWindow::SetupUpdateButton()
{
    ui_->updateButton->setFont(fonts_.bold_16);
    ui_->updateButton->setAccessibleDescription(
        QStringLiteral("Writes the new firmware to the unit"));
    connect(ui_->updateButton, &QPushButton::clicked, this, &MainWindow::onUpdateButtonClicked);
}

void MainWindow::SetupProgressBar()
{
    ui_->progressBar->setFont(fonts_.regular_12);
    ui_->progressBar->setAccessibleName(QStringLiteral("Update progress"));

    auto* const updater = updater_.get();
    connect(this, &MainWindow::ProgressStart, ui_->progressBar, &QProgressBar::reset);
    connect(updater, &FirmwareUpdaterBase::ProgressUpdate, ui_->progressBar,
            &QProgressBar::setValue);
    if (type_ == TargetUsb) {
        connect(updater, &FirmwareUpdaterBase::EraseStarted, this, &MainWindow::onEraseStarted);
        connect(updater, &FirmwareUpdaterBase::EraseFinished, this, &MainWindow::onEraseFinished);
    }
}

void MainWindow::onUpdateButtonClicked()
{
    // The button is disabled first, so that a second click cannot request a second update.
    Show(WindowEvent::UpdateRequested);
    Q_EMIT UpdateDevice();
}

void MainWindow::onWorkerThreadStarted()
{
    if (environment_.sleep_inhibitor) {
        environment_.sleep_inhibitor->Hold();
    }
    Show(WindowEvent::UpdateStarted);
}

void MainWindow::onWorkerThreadFinished(bool status)
{
    if (environment_.sleep_inhibitor) {
        environment_.sleep_inhibitor->Release();
    }
    Show(status ? WindowEvent::UpdateSucceeded : WindowEvent::UpdateFailed);
}

void MainWindow::onConnectionStatus(ConnectionStatus status)
{
    if (auto const event = GetConnectionEvent(status)) {
        Show(*event);
    }
}

void MainWindow::onEraseStarted()
{
    Show(WindowEvent::EraseStarted);
}

void MainWindow::onEraseFinished()
{
    Show(WindowEvent::EraseFinished);
}

void MainWindow::Show(WindowEvent event)
{
    qInfo().noquote() << "window:" << GetEventName(event);
    Apply(event);
}

void MainWindow::Apply(WindowEvent event)
{
    auto const change = GetWindowChange(event, type_);
    if (change.unit_ready) {
        unit_ready_ = *change.unit_ready;
    }
    if (change.button_enabled) {
        ui_->updateButton->setEnabled(*change.button_enabled);
    }
    if (change.button_text) {
        ui_->updateButton->setText(*change.button_text);
    }
    if (change.button_style) {
        ui_->updateButton->setStyleSheet(GetButtonStyleSheet(*change.button_style));
    }
    if (change.progress_format) {
        ui_->progressBar->setFormat(*change.progress_format);
    }
    if (change.progress_value) {
        ui_->progressBar->setValue(*change.progress_value);
    }
    ui_->progressBar->setAccessibleDescription(GetStatusText(event));
    if (change.button_enabled == true) {
        ui_->updateButton->setFocus();
    }
}
