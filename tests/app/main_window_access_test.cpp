// The window for those who do not see it or have no mouse, the log of what it shows, and the
// computer that stays awake.
#include <gmock/gmock.h>

#include <QAccessible>
#include <QSemaphore>
#include <thread>
#include <utility>

#include "tests/app/window_fixture.h"
#include "tests/support/collected_log.h"

namespace {

using testing::ElementsAre;

struct Heard {
    QString name;
    QString description;
    QString value;
    QAccessible::Role role;
    bool disabled;

    bool operator==(Heard const&) const = default;
};

Heard Hear(QWidget& widget)
{
    auto* const interface = QAccessible::queryAccessibleInterface(&widget);
    return {interface->text(QAccessible::Name), interface->text(QAccessible::Description),
            interface->valueInterface() ? interface->valueInterface()->currentValue().toString()
                                        : QString(),
            interface->role(), interface->state().disabled != 0};
}

class Access : public WindowTest {
protected:
    void ExpectBar(char const* status, char const* value)
    {
        EXPECT_EQ(Hear(Bar()), (Heard{QStringLiteral("Update progress"), QString::fromUtf8(status),
                                      QString::fromUtf8(value), QAccessible::ProgressBar, false}));
    }

    void ExpectButton(char const* name, bool disabled)
    {
        EXPECT_EQ(Hear(Button()), (Heard{QString::fromUtf8(name),
                                         QStringLiteral("Writes the new firmware to the unit"),
                                         QString(), QAccessible::PushButton, disabled}));
    }
};

constexpr auto kError =
    "Error connecting to device \xE2\x80\x94 Disconnect device and repeat step 1-3";

TEST_F(Access, NamesButtonAndBarInEveryStateOfAnUpdate)
{
    MakeWindow();
    ExpectButton("UPDATE", true);
    ExpectBar("Waiting for a unit", "0");

    ReportStatus(ConnectionStatus::Connected);
    ExpectButton("UPDATE", false);
    ExpectBar("A unit is ready", "0");

    Button().click();
    ExpectButton("UPDATE", true);
    ExpectBar("Updating", "0");

    FromBackendAndWait([](FirmwareUpdaterBase& backend) {
        Q_EMIT backend.UpdateStarted();
        Q_EMIT backend.ProgressUpdate(42);
    });
    ExpectButton("UPDATING", true);
    ExpectBar("Updating", "42");

    FromBackendAndWait([](FirmwareUpdaterBase& backend) { Q_EMIT backend.UpdateFinished(true); });
    ExpectButton("DONE", true);
    ExpectBar("Done", "100");

    ReportStatus(ConnectionStatus::Disconnected);
    ExpectButton("UPDATE", true);
    ExpectBar("Waiting for a unit", "0");
}

TEST_F(Access, NamesFailuresByTheTextThatTheBarShows)
{
    MakeWindow();
    ReportStatus(ConnectionStatus::VerificationFailed);
    ExpectBar(kError, "0");

    ReportStatus(ConnectionStatus::Connected);
    FromBackendAndWait([](FirmwareUpdaterBase& backend) {
        Q_EMIT backend.UpdateStarted();
        Q_EMIT backend.UpdateFinished(false);
    });
    ExpectButton("UPDATING", true);
    ExpectBar(kError, "0");
}

TEST_F(Access, NamesTheEraseOverUsb)
{
    MakeWindow(TargetUsb);
    FromBackendAndWait([](FirmwareUpdaterBase& backend) { Q_EMIT backend.EraseStarted(); });
    ExpectBar("Erasing", "0");
    FromBackendAndWait([](FirmwareUpdaterBase& backend) { Q_EMIT backend.EraseFinished(); });
    ExpectBar("Updating", "0");
}

TEST_F(Access, GivesTheKeyboardToAButtonThatBecomesReady)
{
    auto& window = MakeWindow();
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    EXPECT_FALSE(Button().hasFocus());
    ReportStatus(ConnectionStatus::Connected);
    EXPECT_TRUE(Button().hasFocus());
    QTest::keyClick(window.focusWidget(), Qt::Key_Space);
    EXPECT_TRUE(WaitForCalls(QStringLiteral("update"), 1));
}

TEST_F(Access, TheFocusChangesNothingOfTheLook)
{
    auto& window = MakeWindow();
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    ReportStatus(ConnectionStatus::Connected);
    ASSERT_TRUE(Button().hasFocus());
    auto const focused = window.grab().toImage();
    Button().clearFocus();
    EXPECT_EQ(window.grab().toImage(), focused);
}

// ---- The log ----

TEST_F(Access, LogsWhatIsAttachedOnlyWhenThatChanges)
{
    CollectedLog log;
    ports_ = {{.name = QStringLiteral("ttyUSB0"), .vendor_id = 0x10C4, .product_id = 0xEA60},
              {.name = QStringLiteral("rfcomm0"), .vendor_id = {}, .product_id = {}}};
    auto& window = MakeWindow();
    window.onCheckForUnit();
    window.onCheckForUnit();
    ports_.clear();
    window.onCheckForUnit();
    EXPECT_THAT(log.Lines(), ElementsAre("I: attached: ttyUSB0 (10c4:ea60), 1 without USB ids",
                                         "I: attached: "));
}

TEST_F(Access, LogsEveryChangeOfItsState)
{
    CollectedLog log;
    MakeWindow();
    ReportStatus(ConnectionStatus::Connected);
    Button().click();
    FromBackendAndWait([](FirmwareUpdaterBase& backend) {
        Q_EMIT backend.UpdateStarted();
        Q_EMIT backend.UpdateFinished(true);
    });
    ReportStatus(ConnectionStatus::Disconnected);
    EXPECT_THAT(log.Lines(), ElementsAre("I: window: unit connected", "I: window: update requested",
                                         "I: window: update started", "I: window: update succeeded",
                                         "I: window: unit disconnected"));
}

TEST_F(Access, LogsNoNameOfAPortWithoutUsbIds)
{
    EXPECT_EQ(
        DescribePorts(
            {{.name = QStringLiteral("cu.Annes-Headset"), .vendor_id = {}, .product_id = {}},
             {.name = QStringLiteral("ttyS0"), .vendor_id = 1, .product_id = {}},
             {.name = QStringLiteral("cu.%2"), .vendor_id = 0x0483, .product_id = 0x0001}}),
        QStringList({QStringLiteral("cu.%2 (0483:0001)"), QStringLiteral("2 without USB ids")}));
}

// ---- Staying awake ----

struct NotedInhibitor : SleepInhibitor {
    explicit NotedInhibitor(std::vector<std::string>& notes) : notes_(notes) {}
    void Hold() override { notes_.push_back("hold"); }
    void Release() override { notes_.push_back("release"); }
    std::vector<std::string>& notes_;
};

// Releases with its end, as the real ones do.
struct EndingInhibitor : SleepInhibitor {
    explicit EndingInhibitor(QSemaphore& released) : released_(released) {}
    ~EndingInhibitor() override { EndingInhibitor::Release(); }
    void Hold() override { held_ = true; }
    void Release() override
    {
        if (std::exchange(held_, false)) {
            released_.release();
        }
    }
    QSemaphore& released_;
    bool held_ = false;
};

TEST_F(Access, KeepsTheComputerAwakeFromTheStartOfAnUpdateToItsEnd)
{
    for (auto const outcome : {true, false}) {
        std::vector<std::string> notes;
        environment_.sleep_inhibitor = std::make_shared<NotedInhibitor>(notes);
        MakeWindow();
        ReportStatus(ConnectionStatus::Connected);
        Button().click();
        EXPECT_THAT(notes, ElementsAre());
        FromBackendAndWait([](FirmwareUpdaterBase& backend) { Q_EMIT backend.UpdateStarted(); });
        EXPECT_THAT(notes, ElementsAre("hold"));
        FromBackendAndWait(
            [outcome](FirmwareUpdaterBase& backend) { Q_EMIT backend.UpdateFinished(outcome); });
        EXPECT_THAT(notes, ElementsAre("hold", "release"));
        window_.reset();
    }
}

TEST_F(Access, KeepsTheComputerAwakeForAnUpdateThatOutlivesItsWindow)
{
    record_->holds_updates = true;
    QSemaphore released;
    environment_.sleep_inhibitor = std::make_shared<EndingInhibitor>(released);
    MakeWindow();
    environment_.sleep_inhibitor.reset();  // the window's alone from now on
    FromBackendAndWait([](FirmwareUpdaterBase& backend) { Q_EMIT backend.UpdateStarted(); });
    Q_EMIT window_->UpdateDevice();
    ASSERT_TRUE(WaitForCalls(QStringLiteral("update"), 1));
    bool released_too_early = true;
    std::thread unit([&] {
        released_too_early = released.tryAcquire(1, 300);
        record_->update_may_end.release();
    });

    window_.reset();

    unit.join();
    EXPECT_FALSE(released_too_early);
    EXPECT_TRUE(released.tryAcquire());
}

}  // namespace
