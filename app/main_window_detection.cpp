// The window's search for a unit. A single-shot timer is armed again after each look, and
// unit_detection.h decides what to do.

#include <QDebug>
#include <QTimer>

#include "app/main_window.h"
#include "modules/stm32_updater/dfu_util_listing.h"

void MainWindow::onCheckForUnit()
{
    auto const detection = LookForUnit();
    switch (detection.action) {
        case DetectionAction::None:
            break;
        case DetectionAction::Connect:
            current_port_ = detection.port_name;
            Q_EMIT ConnectToDevice(current_port_, device_ids_, true);
            break;
        case DetectionAction::Disconnect:
            current_port_.clear();
            Q_EMIT DisconnectFromDevice();
            break;
    }
    if (detection.check_again) {
        CheckAgain(*detection.check_again, Qt::CoarseTimer);
    } else if (detection.action == DetectionAction::None && environment_.write_note) {
        environment_.write_note(
            QStringLiteral("the search for units has ended: more than one is attached (%1); start "
                           "the program again with one")
                .arg(attached_.join(QStringLiteral(", "))));
    }
}

Detection MainWindow::LookForUnit()
{
    if (type_ == TargetUart || type_ == TargetMcubootSerial) {
        auto const attached = environment_.list_serial_ports();
        LogWhenChanged(DescribePorts(attached));
        auto const ports = FindUnitPorts(attached, products_, environment_.product_type);
        return DecideSerial(ports, unit_ready_, environment_.intervals);
    }
    auto const attached = GetUsbDfuDevices();
    LogWhenChanged(DescribeDfuDevices(attached));
    return DecideUsb(FindUnitDfuDevices(attached, products_), environment_.intervals);
}

void MainWindow::LogWhenChanged(QStringList const& attached)
{
    if (attached != attached_) {
        attached_ = attached;
        qInfo().noquote() << "attached:" << attached.join(QStringLiteral(", "));
    }
}

void MainWindow::CheckAgain(std::chrono::milliseconds delay, Qt::TimerType type)
{
    QTimer::singleShot(delay, type, this, SLOT(onCheckForUnit()));
}

QStringList MainWindow::GetUsbDfuDevices()
{
    return stm32_updater::ListDfuDevices(dfu_util_path_, environment_.intervals.list_limit);
}
