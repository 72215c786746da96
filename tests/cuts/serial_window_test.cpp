// The real window over the real serial backends: an update that is requested while a disconnect
// waits in front of it.
#include <gtest/gtest.h>

#include "tests/app/window_fixture.h"
#include "tests/cuts/serial_transport.h"
#include "tests/cuts/serial_unit.h"
#include "tests/support/files.h"
#include "tests/support/warnings.h"

namespace cuts {
namespace {

using namespace Qt::StringLiterals;

class SerialWindow : public WindowTest {
protected:
    void MakeWindowOver(SerialTransport const& transport)
    {
        ini_.SetText("product_list=Lumen:10c4:ea60\ndevice_id_list=12\n");
        ini_.Write(u"image"_s, transport.image);
        environment_.intervals = {.first = kNever, .after_connect = kNever, .idle = kNever};
        unit_ = std::make_unique<SerialUnit>(transport.make_unit());
        window_ = std::make_unique<MainWindow>(
            ini_.Directory(), ini_.Settings(), dfu_util_, transport.type,
            transport.make_backend(ini_.Path(u"image"_s)), environment_);
    }

    void PlugIn(QString const& name)
    {
        unit_->Plug(ini_.Path(name));
        ports_ = {{ini_.Path(name), 0x10C4, 0xEA60}};
    }

    void Unplug()
    {
        unit_->Unplug();
        ports_.clear();
    }

    void ExpectUpdateQueuedBehindADisconnectFailsAtOnce(SerialTransport const& transport)
    {
        MakeWindowOver(transport);
        PlugIn(u"port"_s);
        window_->onCheckForUnit();
        ASSERT_TRUE(WaitUntilReady());
        Unplug();

        // The button is alive until the backend has reported the disconnect.
        window_->onCheckForUnit();
        Button().click();

        EXPECT_TRUE(QTest::qWaitFor([this] { return Bar().format() == kErrorText; }, 1000));
        EXPECT_FALSE(Button().isEnabled());

        PlugIn(u"port2"_s);
        window_->onCheckForUnit();
        ASSERT_TRUE(WaitUntilReady());
        Button().click();
        EXPECT_TRUE(QTest::qWaitFor([this] { return Button().text() == u"DONE"_s; }, kPatience));
        EXPECT_TRUE(HoldsImage(transport, unit_->Bootloader()));
    }

    std::unique_ptr<SerialUnit> unit_;
};

TEST_F(SerialWindow, FailsAnUpdateOverUartAtOnceThatIsQueuedBehindADisconnect)
{
    ExpectWarning("UartFirmwareUpdater: no unit is connected");
    ExpectUpdateQueuedBehindADisconnectFailsAtOnce(GetUartTransport());
}

TEST_F(SerialWindow, FailsAnUpdateOverMcubootAtOnceThatIsQueuedBehindADisconnect)
{
    ExpectUpdateQueuedBehindADisconnectFailsAtOnce(GetMcubootTransport());
}

}  // namespace
}  // namespace cuts
