// The window's search for a unit: a single-shot timer that arms itself again, decided upon in
// unit_detection.h.

#include <QProcess>
#include <QTimer>

#include "app/main_window.h"

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
    }
}

Detection MainWindow::LookForUnit()
{
    if (type_ == TargetUart || type_ == TargetMcubootSerial) {
        auto const ports =
            FindUnitPorts(environment_.list_serial_ports(), products_, environment_.product_type);
        return DecideSerial(ports, unit_ready_, environment_.intervals);
    }
    return DecideUsb(FindUnitDfuDevices(GetUsbDfuDevices(), products_), environment_.intervals);
}

void MainWindow::CheckAgain(std::chrono::milliseconds delay, Qt::TimerType type)
{
    QTimer::singleShot(delay, type, this, SLOT(onCheckForUnit()));
}

QStringList MainWindow::GetUsbDfuDevices()
{
    constexpr int kListTimeoutMs = 30000;
    QProcess dfu_util;
    dfu_util.start(dfu_util_path_, {QStringLiteral("-l"), QStringLiteral("-a0")},
                   QIODevice::ReadWrite);
    dfu_util.waitForFinished(kListTimeoutMs);
    return ParseDfuListing(dfu_util.readAllStandardOutput());
}
