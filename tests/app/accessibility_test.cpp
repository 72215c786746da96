// The window for people who do not see it or have no mouse.
#include <gtest/gtest.h>

#include <QAccessible>

#include "tests/app/window_fixture.h"

using namespace Qt::StringLiterals;

namespace {

// What a screen reader gets of a widget.
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

class Accessibility : public WindowTest {
protected:
    void Expect(QString const& button, bool disabled, QString const& status, QString const& value)
    {
        EXPECT_EQ(Hear(Button()), (Heard{button, u"Writes the new firmware to the unit"_s, u""_s,
                                         QAccessible::PushButton, disabled}));
        EXPECT_EQ(Hear(Bar()),
                  (Heard{u"Update progress"_s, status, value, QAccessible::ProgressBar, false}));
    }

    void ShowActiveWindow()
    {
        window_->show();
        window_->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window_.get()));
    }
};

}  // namespace

TEST_F(Accessibility, NamesButtonAndBarInEveryStateOfAnUpdate)
{
    MakeWindow();
    Expect(u"UPDATE"_s, true, u"Waiting for a unit"_s, u"0"_s);

    ReportStatus(ConnectionStatus::Connected);
    Expect(u"UPDATE"_s, false, u"A unit is ready"_s, u"0"_s);

    Button().click();
    Expect(u"UPDATE"_s, true, u"Updating"_s, u"0"_s);

    StartUpdate();
    ReportProgress(42);
    Expect(u"UPDATING"_s, true, u"Updating"_s, u"42"_s);

    FinishUpdate(true);
    Expect(u"DONE"_s, true, u"Done"_s, u"100"_s);

    ReportStatus(ConnectionStatus::Disconnected);
    Expect(u"UPDATE"_s, true, u"Waiting for a unit"_s, u"0"_s);
}

TEST_F(Accessibility, DescribesFailuresAndAnEraseOverUsbByTheBarsText)
{
    MakeWindow(TargetUsb);
    ReportStatus(ConnectionStatus::VerificationFailed);
    Expect(u"UPDATE"_s, true, kErrorText, u"0"_s);

    ReportStatus(ConnectionStatus::Connected);
    StartUpdate();
    StartErase();
    Expect(u"UPDATING"_s, true, u"Erasing"_s, u"0"_s);
    FinishErase();
    Expect(u"UPDATING"_s, true, u"Updating"_s, u"0"_s);
    FinishUpdate(false);
    Expect(u"UPDATING"_s, true, kErrorText, u"0"_s);
}

TEST_F(Accessibility, TheButtonGetsTheKeyboardFocusWhenAUnitIsReady)
{
    MakeWindow();
    ShowActiveWindow();
    EXPECT_FALSE(Button().hasFocus());

    ReportStatus(ConnectionStatus::Connected);

    EXPECT_TRUE(Button().hasFocus());
    QTest::keyClick(window_->focusWidget(), Qt::Key_Space);
    EXPECT_TRUE(WaitForCalls(u"update"_s, 1));
}

TEST_F(Accessibility, TheFocusDoesNotChangeTheLook)
{
    MakeWindow();
    ShowActiveWindow();
    ReportStatus(ConnectionStatus::Connected);
    ASSERT_TRUE(Button().hasFocus());
    auto const focused = window_->grab().toImage();

    Button().clearFocus();

    EXPECT_EQ(window_->grab().toImage(), focused);
}
