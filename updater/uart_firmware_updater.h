// The backend for units in the STM32 system bootloader on a serial port: connects the serial
// adapter, the dispatcher and the bootloader engine, and runs one update from connect to restart.
#pragma once

#include <QSemaphore>
#include <QThread>
#include <memory>
#include <mutex>

#include "hal/uart/uart.h"
#include "hal/uart/uart_interface.h"
#include "modules/stm32_updater/stm32_uart_updater.h"
#include "runtime/dispatcher.h"
#include "runtime/task.h"
#include "updater/firmware_updater_base.h"

// Every operation blocks its caller's thread, the window's worker thread. Without a connection,
// upload() and verifyDeviceId() return false at once and reset() does nothing. A connection whose
// port is lost stays one until disconnect(), and fails by the engine's time limits.
class UartFirmwareUpdater : public FirmwareUpdaterBase {
    Q_OBJECT

public:
    // start_address: where the new firmware is started. programming_address: where it is written.
    // otp_size: bytes. boot_mode_address: where the boot-mode marker is written before the start.
    UartFirmwareUpdater(QString const& firmware_path, unsigned start_address,
                        unsigned programming_address, unsigned otp_address, unsigned long otp_size,
                        unsigned boot_mode_address, QString const& fw_target_type, QObject* parent);
    // Waits without limit for the port's thread.
    ~UartFirmwareUpdater() override;

    // Opens the port and identifies the chip. Closes the port of an earlier connect first. A port
    // that cannot be opened ends the process (hal/uart/uart.h).
    bool connect(QString const& port) override;

    // Closes the port. The upload, not this, ends the bootloader session.
    void disconnect() override;

    // Ends the bootloader session whatever the result; reset() opens one of its own. A file that
    // cannot be read or has fewer than 5 bytes (kSmallestImageFile) fails before anything is
    // erased.
    bool upload(QString const& path, std::function<void(int)> progress) override;

    void reset() override;
    bool verifyDeviceId(QList<uint8_t> const& device_ids) override;

public Q_SLOTS:
    void onStartUpdate() override;
    void onConnectToDevice(QString const& port, QList<uint8_t> device_ids,
                           bool const& verify) override;
    void onDisconnectDevice() override;

private:
    bool IsConnected() const { return uart_thread_ != nullptr; }
    void StopUartThread();
    void NoteFacts();  // what the engine has learned

    unsigned start_address_;
    unsigned programming_address_;
    unsigned otp_address_;
    unsigned long otp_size_;
    unsigned boot_mode_address_;
    QString fw_target_type_;
    Uart* uart_ = nullptr;  // deletes itself when its thread ends
    std::unique_ptr<UartInterface> uart_interface_;
    std::unique_ptr<stm32_updater::Stm32UartUpdater> updater_;
    dispatcher::Dispatcher dispatcher_;
    // Not used on the desktop: the engine has a semaphore of its own.
    task::counting_semaphore<1> task_semaphore_{0};
    QSemaphore tx_semaphore_{1};  // the token of Transmit, see uart_interface.h
    std::mutex update_mutex_;
    std::unique_ptr<QThread> uart_thread_;
};
