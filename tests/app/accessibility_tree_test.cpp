// The window as a screen reader gets it: read by another process, through AT-SPI, in every state.
#include <gtest/gtest.h>

#include <QProcess>
#include <QRegularExpression>

#include "tests/app/window_fixture.h"

using namespace Qt::StringLiterals;

namespace {

constexpr char const* kTexts =
    "window_title=Lumen updater\nproduct_text=Lumen\nfw_version=1.2.3\n"
    "instructions_text=\"1. Plug in\\n2. Reset\"\n";

class AccessibilityTree : public WindowTest {
protected:
    void ShowWindow(QByteArray const& ini, targetInterfaceType type = TargetUart)
    {
        ini_.SetText(ini);
        MakeWindow(type);
        window_->show();
        window_->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window_.get()));
    }

    // The lines of read_accessible_tree.py. It fails until this program is known to the bus, which
    // takes some time at its start. Meanwhile this process answers the reader's questions.
    static QStringList Read()
    {
        QProcess reader;
        EXPECT_TRUE(QTest::qWaitFor([&] { return RunReader(reader); }, kPatience))
            << reader.readAllStandardError().constData();
        auto lines = QString::fromUtf8(reader.readAllStandardOutput()).split(u'\n');
        EXPECT_EQ(lines.takeLast(), u""_s);
        return lines;
    }
    static bool RunReader(QProcess& reader)
    {
        reader.start(QStringLiteral(FW_TREE_READER),
                     {QString::number(QCoreApplication::applicationPid())});
        return QTest::qWaitFor([&] { return reader.state() == QProcess::NotRunning; }, kPatience) &&
               reader.exitStatus() == QProcess::NormalExit && reader.exitCode() == 0;
    }

    // The lines of the button and the bar, without what never changes.
    static QStringList ReadControls()
    {
        auto controls = Read().filter(QRegularExpression(u"^(button|bar) "_s));
        controls.replaceInStrings(u" (Writes the new firmware to the unit)"_s, u""_s);
        controls.replaceInStrings(u"bar \"Update progress\" "_s, u""_s);
        controls.replaceInStrings(u" to 100"_s, u""_s);
        return controls;
    }
};

}  // namespace

TEST_F(AccessibilityTree, IsInReadingOrderWithoutEmptyLabels)
{
    QStringList expected{u"window \"Lumen updater\""_s,
                         u"label \"Firmware upgrade\""_s,
                         u"label \"Lumen\""_s,
                         u"label \"Version\""_s,
                         u"label \"1.2.3\""_s,
                         u"label \"1. Plug in / 2. Reset\""_s,
                         u"button \"UPDATE\" (Writes the new firmware to the unit)"_s,
                         u"bar \"Update progress\" (Waiting for a unit) 0 of 0 to 100"_s,
                         u"label \"Update requires cable with USB-C connector.\""_s};
    ShowWindow(QByteArray(kTexts) + "fw_target_type=customer\n");
    EXPECT_EQ(Read(), expected);

    ShowWindow(QByteArray(kTexts) + "fw_target_type=service\n");
    expected.insert(3, u"label \"Service\""_s);
    EXPECT_EQ(Read(), expected);
}

TEST_F(AccessibilityTree, HasTheRightNamesValuesAndFocusInEveryStateOfAnUpdate)
{
    ShowWindow(kTexts);
    EXPECT_EQ(ReadControls(),
              QStringList({u"button \"UPDATE\""_s, u"(Waiting for a unit) 0 of 0"_s}));
    ReportStatus(ConnectionStatus::VerificationFailed);
    EXPECT_EQ(ReadControls(),
              QStringList({u"button \"UPDATE\""_s, u"("_s + kErrorText + u") 0 of 0"_s}));
    ReportStatus(ConnectionStatus::Connected);
    EXPECT_EQ(ReadControls(),
              QStringList({u"button \"UPDATE\" enabled focused"_s, u"(A unit is ready) 0 of 0"_s}));
    Button().click();
    EXPECT_EQ(ReadControls(), QStringList({u"button \"UPDATE\""_s, u"(Updating) 0 of 0"_s}));
    StartUpdate();
    ReportProgress(42);
    EXPECT_EQ(ReadControls(), QStringList({u"button \"UPDATING\""_s, u"(Updating) 42 of 0"_s}));
    FinishUpdate(true);
    EXPECT_EQ(ReadControls(), QStringList({u"button \"DONE\""_s, u"(Done) 100 of 0"_s}));
    ReportStatus(ConnectionStatus::Disconnected);
    EXPECT_EQ(ReadControls(),
              QStringList({u"button \"UPDATE\""_s, u"(Waiting for a unit) 0 of 0"_s}));
    ReportStatus(ConnectionStatus::Connected);
    EXPECT_EQ(ReadControls(),
              QStringList({u"button \"UPDATE\" enabled focused"_s, u"(A unit is ready) 0 of 0"_s}))
        << "the second unit";
}

TEST_F(AccessibilityTree, HasTheRightNamesAndValuesDuringAnEraseOverUsbAndAfterAFailure)
{
    ShowWindow(kTexts, TargetUsb);
    StartUpdate();
    StartErase();
    EXPECT_EQ(ReadControls(), QStringList({u"button \"UPDATING\""_s, u"(Erasing) 0 of 0"_s}));
    FinishErase();
    ReportProgress(7);
    EXPECT_EQ(ReadControls(), QStringList({u"button \"UPDATING\""_s, u"(Updating) 7 of 0"_s}));
    FinishUpdate(false);
    EXPECT_EQ(ReadControls(),
              QStringList({u"button \"UPDATING\""_s, u"("_s + kErrorText + u") 7 of 0"_s}));
}
