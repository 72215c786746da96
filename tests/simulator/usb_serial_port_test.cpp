// The port as Qt sees it: listed by QSerialPortInfo, opened by QSerialPort. Needs umockdev's
// preload library in this process.
#include "simulator/host/usb_serial_port.h"

#include <gtest/gtest.h>

#include <QSerialPort>
#include <QSerialPortInfo>
#include <optional>

#include "tests/simulator/port_test_support.h"

namespace simulator {
namespace {

using test::PluggedUnit;

std::optional<QSerialPortInfo> Find(std::string const& device_path)
{
    for (auto const& info : QSerialPortInfo::availablePorts()) {
        if (info.systemLocation() == QString::fromStdString(device_path)) {
            return info;
        }
    }
    return std::nullopt;
}

// Opens as a client of the bootloader does.
bool Open(QSerialPort& port, std::string const& device_path)
{
    port.setPortName(QString::fromStdString(device_path));
    port.setBaudRate(460800);
    port.setParity(QSerialPort::EvenParity);
    return port.open(QIODevice::ReadWrite);
}

QByteArray Ask(QSerialPort& port, QByteArray const& request, qsizetype answer_size)
{
    port.write(request);
    QByteArray answer;
    while (answer.size() < answer_size && port.waitForReadyRead(test::kTimeoutMs)) {
        answer += port.readAll();
    }
    return answer;
}

TEST(UsbSerialPort, IsListedWithItsUsbIdentity)
{
    auto options = test::UniqueOptions();
    options.port.vendor_id = 0x0403;
    options.port.product_id = 0x6015;
    options.port.serial_number = "KV000042";
    options.port.description = "Service_Cable";
    auto const name = options.port.name;
    PluggedUnit const plugged(std::move(options));

    auto const info = Find("/dev/" + name);

    ASSERT_TRUE(info.has_value());
    EXPECT_EQ(info->portName().toStdString(), name);
    EXPECT_EQ(info->vendorIdentifier(), 0x0403);
    EXPECT_EQ(info->productIdentifier(), 0x6015);
    EXPECT_EQ(info->serialNumber().toStdString(), "KV000042");
    EXPECT_EQ(info->description().toStdString(), "Service Cable");
}

TEST(UsbSerialPort, IsNoLongerListedOnceUnpluggedOrFadedAndOnlyTheFormerIsAnErrorToItsClient)
{
    for (bool const fades : {false, true}) {
        PluggedUnit plugged;
        auto const path = plugged.unit.Status().device_path;
        QSerialPort port;
        ASSERT_TRUE(Open(port, path));

        fades ? plugged.unit.Fade() : plugged.unit.Unplug();

        EXPECT_FALSE(Find(path).has_value());
        port.write(QByteArray("\x7F"));
        EXPECT_FALSE(port.waitForReadyRead(fades ? 100 : test::kTimeoutMs));
        // Which error depends on Qt: some versions read the end of the line, others (6.8) see the
        // hang-up first and report what the last failed system call was, whichever that may be.
        EXPECT_NE(port.error(), QSerialPort::NoError);
        EXPECT_EQ(port.error() == QSerialPort::TimeoutError, fades);
        QSerialPort again;
        EXPECT_FALSE(Open(again, path));
    }
}

TEST(UsbSerialPort, ComesBackUnderItsOldNameOrAnother)
{
    PluggedUnit plugged;
    auto const path = plugged.unit.Status().device_path;
    for (auto const* suffix : {"", "", "9"}) {
        plugged.unit.Unplug();
        EXPECT_FALSE(Find(path).has_value());
        plugged.unit.Plug(MakeUniquePortName() + suffix);

        QSerialPort port;
        ASSERT_TRUE(Open(port, path + suffix));
        EXPECT_EQ(Ask(port, QByteArray("\x7F"), 1), QByteArray("\x79"));
        EXPECT_EQ(Find(path + suffix)->vendorIdentifier(), 0x10C4);
    }
    EXPECT_FALSE(Find(path).has_value()) << "the old name";
}

TEST(UsbSerialPort, TwoUnitsHaveAPortEach)
{
    PluggedUnit first(test::UniqueOptions("1"));
    SimulatedUnit second(first.testbed, test::UniqueOptions("2"));
    second.Plug();
    QSerialPort port;

    EXPECT_TRUE(Find(first.unit.Status().device_path).has_value());
    EXPECT_TRUE(Find(second.Status().device_path).has_value());
    ASSERT_TRUE(Open(port, second.Status().device_path));
    EXPECT_EQ(Ask(port, QByteArray("\x7F"), 1), QByteArray("\x79"));
    EXPECT_EQ(port.baudRate(), 460800);
    EXPECT_EQ(first.unit.Status().connects, 0U);
    EXPECT_EQ(second.Status().connects, 1U);
}

TEST(UsbSerialPort, IsListedButDoesNotOpenWhileItIsBlocked)
{
    PluggedUnit plugged;
    auto const path = plugged.unit.Status().device_path;

    plugged.unit.SetBlocked(true);
    QSerialPort port;
    EXPECT_TRUE(Find(path).has_value());
    EXPECT_FALSE(Open(port, path));

    plugged.unit.SetBlocked(false);
    EXPECT_TRUE(Open(port, path));
}

}  // namespace
}  // namespace simulator
