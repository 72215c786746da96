// The window's environment on the system that it really runs on.
#include "app/window_environment.h"

#include <gtest/gtest.h>

#include <QSysInfo>
#include <algorithm>
#include <memory>
#include <optional>

#include "simulator/host/usb_serial_port.h"

namespace {

class SystemPorts : public testing::Test {
protected:
    static std::shared_ptr<simulator::UsbTestbed> Testbed()
    {
        static auto const testbed = std::make_shared<simulator::UsbTestbed>();
        return testbed;
    }

    std::optional<SerialPortEntry> Find() const
    {
        auto const ports = WindowEnvironment::System().list_serial_ports();
        auto const found =
            std::ranges::find(ports, QString::fromStdString(options_.name), &SerialPortEntry::name);
        return found == ports.end() ? std::nullopt : std::optional(*found);
    }

    simulator::UsbSerialPortOptions options_{
        .name = simulator::MakeUniquePortName(), .vendor_id = 0x0483, .product_id = 0xDF11};
};

}  // namespace

TEST_F(SystemPorts, AreListedWithTheirUsbIdsWhileTheyAreThere)
{
    simulator::UsbSerialPort port(Testbed(), options_);
    EXPECT_EQ(Find(), std::nullopt);

    port.Plug();

    auto const entry = Find();
    ASSERT_TRUE(entry.has_value());
    EXPECT_EQ(entry->vendor_id, 0x0483);
    EXPECT_EQ(entry->product_id, 0xDF11);

    port.Unplug();

    EXPECT_EQ(Find(), std::nullopt);
}

TEST(SystemEnvironment, HasTheSystemsNameAndTheDefaultIntervals)
{
    auto const environment = WindowEnvironment::System();

    EXPECT_EQ(environment.product_type, QSysInfo::productType());
    EXPECT_EQ(environment.intervals.first, DetectionIntervals().first);
    EXPECT_EQ(environment.intervals.after_connect, DetectionIntervals().after_connect);
    EXPECT_EQ(environment.intervals.idle, DetectionIntervals().idle);
    EXPECT_EQ(environment.intervals.list_limit, DetectionIntervals().list_limit);
}
