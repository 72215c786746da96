// A simulated unit on a simulated serial port, and the UART backend that talks to it.
#pragma once

#include <gtest/gtest.h>

#include <QStringList>
#include <QTemporaryDir>
#include <memory>
#include <string>

#include "simulator/simulated_unit.h"
#include "updater/uart_firmware_updater.h"

class UartUnitTest : public testing::Test {
protected:
    static constexpr uint32_t kFlash = 0x08000000;
    static constexpr uint32_t kOtp = 0x1FFF7000;
    static constexpr uint32_t kStart = 0x08000000;
    static constexpr uint32_t kBootMode = 0x4000A414;  // a backup register
    static constexpr uint8_t kModel = 12;

    UartUnitTest();

    // A backend for this unit, whose signals go to the list below. One at a time.
    std::unique_ptr<UartFirmwareUpdater> MakeBackend(QString const& firmware_path = {},
                                                     QString const& fw_target_type = {},
                                                     unsigned programming_address = kFlash);

    // A file with this content in a folder of the test's own.
    QString MakeFile(QByteArray const& content) const;

    // How often the unit's line is open, apart from the unit's own hold on it.
    int OpenPorts();

    // The commands that the unit received: "sync", "get", "read", ...
    std::vector<std::string> Commands();
    bool WasRead();  // any Read Memory

    QByteArray Flash(size_t size, uint32_t address = kFlash);

    QString port_ = QString::fromStdString(simulator::MakeUniquePortName());
    std::unique_ptr<simulator::SimulatedUnit> unit_;
    QStringList signals_;  // see backend_signals.h
    QTemporaryDir folder_;
};
