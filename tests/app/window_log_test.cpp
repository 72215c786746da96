// What the window writes to the log.
#include <gmock/gmock.h>

#include "tests/app/window_fixture.h"
#include "tests/support/collected_log.h"

using namespace Qt::StringLiterals;
using testing::ElementsAre;

namespace {

using WindowLog = WindowTest;

}  // namespace

TEST_F(WindowLog, NamesWhatIsAttachedOnlyWhenThatChanges)
{
    CollectedLog log;
    ports_ = {{u"ttyUSB0"_s, 0x10C4, 0xEA60}, {u"rfcomm0"_s, {}, {}}};
    auto& window = MakeWindow();
    window.onCheckForUnit();
    window.onCheckForUnit();
    ports_.clear();
    window.onCheckForUnit();

    EXPECT_THAT(log.Lines(), ElementsAre("I: attached: ttyUSB0 (10c4:ea60), 1 without USB ids",
                                         "I: attached: "));
}

TEST_F(WindowLog, HasEveryChangeOfItsState)
{
    CollectedLog log;
    MakeWindow();
    ReportStatus(ConnectionStatus::Connected);
    Button().click();
    StartUpdate();
    FinishUpdate(true);
    ReportStatus(ConnectionStatus::Disconnected);

    EXPECT_THAT(log.Lines(), ElementsAre("I: window: unit connected", "I: window: update requested",
                                         "I: window: update started", "I: window: update succeeded",
                                         "I: window: unit disconnected"));
}

// A wireless port may bear the name of its owner.
TEST_F(WindowLog, HidesTheNamesOfPortsWithoutUsbIds)
{
    EXPECT_EQ(
        DescribePorts(
            {{u"cu.Annes-Headset"_s, {}, {}}, {u"ttyS0"_s, 1, {}}, {u"cu.%2"_s, 0x0483, 0x0001}}),
        QStringList({u"cu.%2 (0483:0001)"_s, u"2 without USB ids"_s}));
}
