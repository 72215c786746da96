// Which backend config.ini asks for.
#include "app/backend.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QSerialPort>

#include "simulator/simulated_unit.h"
#include "tests/config/ini_file.h"
#include "tests/support/collected_log.h"
#include "updater/mcuboot_serial_updater.h"
#include "updater/uart_firmware_updater.h"
#include "updater/usb_firmware_updater.h"

using namespace Qt::StringLiterals;

namespace {

// A unit in serial recovery mode behind a pseudo-terminal.
class RecoveryUnit {
public:
    RecoveryUnit()
    {
        simulator::SimulatedUnitOptions options;
        options.bootloader = simulator::McubootRecoveryOptions();
        unit_ = std::make_unique<simulator::SimulatedUnit>(
            std::make_shared<simulator::UsbTestbed>(), options);
        unit_->Plug();
    }

    QString PortName() { return QString::fromStdString(unit_->Status().pty_path); }
    void SpoilsOneAnswer() { unit_->AddFault({simulator::FaultKind::kGarbageAnswer, 1, 1, 'x'}); }

private:
    std::unique_ptr<simulator::SimulatedUnit> unit_;
};

Backend BackendFor(QByteArray const& ini_text)
{
    IniFile ini(ini_text);
    return MakeBackend(ini.Settings(), u"/images/fw.bin"_s, u"/tools/dfu-util"_s);
}

template <typename Updater>
void ExpectBackend(char const* ini_text, targetInterfaceType type)
{
    auto const backend = BackendFor(ini_text);

    EXPECT_EQ(backend.type, type) << ini_text;
    ASSERT_NE(dynamic_cast<Updater*>(backend.updater.get()), nullptr) << ini_text;
    EXPECT_EQ(backend.updater->parent(), nullptr) << ini_text;
}

}  // namespace

TEST(MakeBackend, GivesTheUartBackendUnlessAnotherIsNamed)
{
    for (auto const* text : {"", "interface=uart\n", "interface=USB\n"}) {
        ExpectBackend<UartFirmwareUpdater>(text, TargetUart);
    }
    ExpectBackend<UsbFirmwareUpdater>("interface=usb\n", TargetUsb);
    ExpectBackend<McubootSerialUpdater>("interface=mcuboot_serial\n", TargetMcubootSerial);
}

TEST(MakeBackend, GivesTheMcubootBackendItsBaudRateAndNoLogForDevelopers)
{
    for (auto const& [text, baud] :
         {std::pair{"interface=mcuboot_serial\nmcuboot_baud=115200\n", 115200},
          std::pair{"interface=mcuboot_serial\n", 921600}}) {
        RecoveryUnit unit;
        unit.SpoilsOneAnswer();
        auto const backend = BackendFor(text);
        CollectedLog const log;

        EXPECT_FALSE(backend.updater->connect(unit.PortName()));
        ASSERT_TRUE(backend.updater->connect(unit.PortName())) << text;

        auto const* port = backend.updater->findChild<QSerialPort*>();
        ASSERT_NE(port, nullptr) << text;
        EXPECT_EQ(port->baudRate(), baud) << text;
        EXPECT_THAT(log.Lines(), testing::IsEmpty());
    }
}
