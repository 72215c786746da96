// The checker of the walk's logs: it accepts what may be, and names what must not be.

#include "tests/random_walk/window_log.h"

#include <gtest/gtest.h>

#include <QStringList>
#include <string>

using namespace Qt::StringLiterals;

namespace {

// `events`: names of window events, or whole lines, divided by commas.
WindowLog Read(char const* events)
{
    QByteArray log;
    for (auto const& event : QString::fromLatin1(events).split(u',')) {
        log += "2026-01-01T00:00:00.000Z info: " +
               (event.contains(u':') ? event : u"window: "_s + event).toUtf8() + '\n';
    }
    return ReadWindowLog(log, TargetUart);
}

TEST(WindowLog, CountsTheEventsOfAnUpdateAndKnowsWhatTheyLeaveInTheWindow)
{
    auto const log = Read("unit connected,update requested,update started,update succeeded");

    EXPECT_EQ(log.contradiction, QString());
    EXPECT_EQ(log.Count(WindowEvent::UnitConnected), 1);
    EXPECT_EQ(log.Requested(), 1);
    EXPECT_EQ(log.Started(), 1);
    EXPECT_EQ(log.Ended(), 1);
    EXPECT_FALSE(log.IsBusy());
    EXPECT_TRUE(log.unit_ready);
    EXPECT_EQ(log.shown.button_text, u"DONE"_s);
    EXPECT_EQ(log.shown.progress_value, 100);
}

TEST(WindowLog, KnowsAnUpdateThatIsStillToCome)
{
    auto const log = Read("unit connected,update requested,unit disconnected");

    EXPECT_TRUE(log.IsBusy());
    EXPECT_FALSE(log.IsUpdating());
    EXPECT_FALSE(log.unit_ready);
}

TEST(WindowLog, NamesEveryContradiction)
{
    struct Row {
        char const* events;
        char const* text;
    };
    constexpr Row kRows[] = {
        {"update requested", "a press of a disabled button counted"},
        {"unit connected,update requested,update requested",
         "a press of a disabled button counted"},
        {"unit connected,update started", "an update started that nobody asked for"},
        {"unit connected,update requested,update started,update failed,update started",
         "an update started that nobody asked for"},
        {"unit connected,update requested,unit connected,update requested,update started,"
         "update started",
         "an update started during another one"},
        {"unit connected,update requested,update failed", "an update ended that had not started"},
        {"unit connected,update requested,update started,update failed,update failed",
         "an update ended that had not started"},
    };
    for (auto const& [events, text] : kRows) {
        EXPECT_EQ(Read(events).contradiction.toStdString(), text) << events;
    }
}

TEST(WindowLog, KnowsWhenTwoUnitsMayHaveEndedTheSearch)
{
    constexpr char const* kTwo = "attached: ttyUSB1 (10c4:ea60) ttyUSB2 (10c4:ea60)";
    EXPECT_TRUE(Read(kTwo).may_have_stopped_looking);
    EXPECT_FALSE(Read("attached: ttyUSB1 (10c4:ea60)").may_have_stopped_looking);
    EXPECT_FALSE(Read((std::string("unit connected,") + kTwo).c_str()).may_have_stopped_looking);
    EXPECT_TRUE(Read((std::string("unit connected,") + kTwo + ",unit disconnected").c_str())
                    .may_have_stopped_looking);
}

TEST(WindowLog, NamesThePortThatCouldNotBeOpened)
{
    EXPECT_EQ(Read("debug: Failed to open port \"ttyUSB7\"").unopenable_port, u"ttyUSB7"_s);
    EXPECT_EQ(Read("unit connected").unopenable_port, QString());
}

}  // namespace
