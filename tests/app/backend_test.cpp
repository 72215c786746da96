// Which backend config.ini asks for, and what a build says that lacks it.
#include "app/backend.h"

#include <gtest/gtest.h>

#include "tests/app/ini_file.h"
#include "updater/mcuboot_serial_updater.h"
#include "updater/uart_firmware_updater.h"

using namespace Qt::StringLiterals;

namespace {

Backend BackendFor(QByteArray const& ini_text)
{
    IniFile ini(ini_text);
    return MakeBackend(ini.Settings(), u"/images/fw.bin"_s);
}

}  // namespace

TEST(MakeBackend, GivesTheUartBackendUnlessAnotherIsNamed)
{
    for (const auto* text : {"", "interface=uart\n", "interface=USB\n"}) {
        const auto backend = BackendFor(text);

        EXPECT_EQ(backend.type, TargetUart) << text;
        ASSERT_NE(dynamic_cast<UartFirmwareUpdater*>(backend.updater.get()), nullptr) << text;
        EXPECT_EQ(backend.updater->parent(), nullptr) << text;
        EXPECT_TRUE(backend.problem.isEmpty()) << text;
    }
}

TEST(MakeBackend, SaysInPlainWordsThatUsbCannotBeDriven)
{
    const auto backend = BackendFor("interface=usb\n");

    EXPECT_EQ(backend.type, TargetUsb);
    EXPECT_EQ(backend.updater, nullptr);
    EXPECT_FALSE(backend.problem.isEmpty());
}

TEST(MakeBackend, GivesTheMcubootBackendWithoutAParent)
{
    const auto backend = BackendFor("interface=mcuboot_serial\n");

    EXPECT_EQ(backend.type, TargetMcubootSerial);
    ASSERT_NE(dynamic_cast<McubootSerialUpdater*>(backend.updater.get()), nullptr);
    EXPECT_EQ(backend.updater->parent(), nullptr);
    EXPECT_TRUE(backend.problem.isEmpty());
}
