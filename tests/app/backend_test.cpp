// Which backend config.ini asks for.
#include "app/backend.h"

#include <gtest/gtest.h>

#include "tests/app/ini_file.h"
#include "updater/mcuboot_serial_updater.h"
#include "updater/uart_firmware_updater.h"
#include "updater/usb_firmware_updater.h"

using namespace Qt::StringLiterals;

namespace {

Backend BackendFor(QByteArray const& ini_text)
{
    IniFile ini(ini_text);
    return MakeBackend(ini.Settings(), u"/images/fw.bin"_s, u"/tools/dfu-util"_s);
}

}  // namespace

TEST(MakeBackend, GivesTheUartBackendUnlessAnotherIsNamed)
{
    for (const auto* text : {"", "interface=uart\n", "interface=USB\n"}) {
        const auto backend = BackendFor(text);

        EXPECT_EQ(backend.type, TargetUart) << text;
        ASSERT_NE(dynamic_cast<UartFirmwareUpdater*>(backend.updater.get()), nullptr) << text;
        EXPECT_EQ(backend.updater->parent(), nullptr) << text;
    }
}

TEST(MakeBackend, GivesTheUsbBackendWithoutAParent)
{
    const auto backend = BackendFor("interface=usb\n");

    EXPECT_EQ(backend.type, TargetUsb);
    ASSERT_NE(dynamic_cast<UsbFirmwareUpdater*>(backend.updater.get()), nullptr);
    EXPECT_EQ(backend.updater->parent(), nullptr);
}

TEST(MakeBackend, GivesTheMcubootBackendWithoutAParent)
{
    const auto backend = BackendFor("interface=mcuboot_serial\n");

    EXPECT_EQ(backend.type, TargetMcubootSerial);
    ASSERT_NE(dynamic_cast<McubootSerialUpdater*>(backend.updater.get()), nullptr);
    EXPECT_EQ(backend.updater->parent(), nullptr);
}
