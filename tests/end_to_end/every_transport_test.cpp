// What holds for an update over any transport, seen from outside: the staged program, its window on
// a screen, a simulated unit.

#include <QFile>

#include "tests/end_to_end/transport.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr Row kUart{"Uart", FW_STAGED_BUNDLE};
constexpr Row kMcuboot{"Mcuboot", FW_STAGED_MCUBOOT_BUNDLE};
constexpr Row kUsb{"Usb", FW_STAGED_USB_BUNDLE};

class EveryTransport : public Transport, public testing::WithParamInterface<Row> {
protected:
    EveryTransport() : Transport(GetParam().value) {}

    bool IsDoneScreen(Screen const& screen) const override
    {
        return screen.button == u"DONE"_s && screen.progress == 100;
    }
};

TEST_P(EveryTransport, RefusesAnotherModelWithoutTouchingTheUnit)
{
    Start(u"--model-id 222"_s);
    ExpectScreen(IsRefused);
    ExpectScreenStays(IsRefused, 2s);
    ExpectUnitIsUntouched();
    ExpectLogged(u" unit refused on .*; model 222; this firmware is for "_s);
}

TEST_P(EveryTransport, RefusesAUnitWithoutAModel)
{
    Start(u"--model-id none"_s);
    ExpectScreen(IsRefused);
    ExpectUnitIsUntouched();
    ExpectLogged(u" unit refused on .*; no model"_s);
}

TEST_P(EveryTransport, UpdatesAnyModelWhenTheFirmwareIsForService)
{
    bundle_.SetKey(u"fw_target_type"_s, u"service"_s);
    Start(u"--model-id 222"_s);
    UpdateToTheEnd();
    EXPECT_EQ(CountInJournal(u"read"_s), 0);
    ExpectLogged(u" unit found on .*; model not checked"_s);
    ExpectLogged(u" update succeeded: %1 bytes in "_s.arg(bundle_.ReadFirmware().size()));
}

TEST_P(EveryTransport, LeavesTracesThatAUnitBeforeItsUpdateDoesNotHave)
{
    PlugIn();
    for (auto const& [name, expected, actual] : ReadUnitFacts(bundle_, *unit_)) {
        EXPECT_EQ(actual == expected, name == u"written unerased"_s) << name.toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(, EveryTransport, testing::Values(kUart, kMcuboot, kUsb), NameOf);

// Not so over USB, where detection ends with the connection and the tool opens the image.
class SerialTransport : public EveryTransport {};

TEST_P(SerialTransport, GoesBackToWaitingWhenTheUpdatedUnitIsPulledOut)
{
    Start();
    UpdateToTheEnd();
    unit_->Command(u"unplug"_s);
    ExpectScreen(IsWaiting);
}

TEST_P(SerialTransport, ShowsAMissingImageAsFailedAndLeavesTheUnitUntouched)
{
    ASSERT_TRUE(QFile::remove(bundle_.FirmwarePath()));
    Start();
    StartUpdate();
    ExpectScreen(IsFailed);
    ExpectUnitIsUntouched();
    ExpectOneOutcomeEach(u"failed"_s);
}

INSTANTIATE_TEST_SUITE_P(, SerialTransport, testing::Values(kUart, kMcuboot), NameOf);

}  // namespace
