// The window's form before any configuration: its widgets' places, texts and alignments. This is
// the only test that states places; others ask the window.
#include <gtest/gtest.h>

#include <QMainWindow>
#include <QMenuBar>
#include <QStatusBar>

#include "ui_main_window.h"

namespace {

constexpr Qt::Alignment kLeftMiddle = Qt::AlignLeft | Qt::AlignVCenter;
constexpr Qt::Alignment kLeftTop = Qt::AlignLeft | Qt::AlignTop;
constexpr Qt::Alignment kRightMiddle = Qt::AlignRight | Qt::AlignVCenter;

class MainWindowForm : public testing::Test {
protected:
    MainWindowForm() { ui_.setupUi(&window_); }

    QMainWindow window_;
    Ui::MainWindow ui_;
};

}  // namespace

TEST_F(MainWindowForm, HasItsLabelsPlacesTextsAndAlignments)
{
    struct {
        char const* name;
        QRect geometry;
        char const* text;
        Qt::Alignment alignment;
    } const rows[] = {
        {"titleLabel", {40, 30, 201, 21}, "Firmware upgrade", kLeftMiddle},
        {"productLabel", {40, 55, 201, 21}, "Unknown", kLeftMiddle},
        {"typeLabel", {40, 80, 181, 21}, "", kLeftMiddle},
        {"instructionsLabel",
         {40, 160, 201, 231},
         "Instructions\n\n- plugin \n- place in boot mode \n- reset \n- press Update",
         kLeftTop},
        {"versionNumberLabel", {560, 55, 58, 16}, "A1", kRightMiddle},
        {"versionLabel", {520, 30, 101, 16}, "Version", kRightMiddle},
        {"progressBarFrame", {148, 400, 477, 40}, "", kLeftMiddle},
        {"infoLabel",
         {40, 478, 311, 31},
         "Update requires cable with USB-C connector.",
         kLeftMiddle},
    };
    for (auto const& [name, geometry, text, alignment] : rows) {
        SCOPED_TRACE(name);
        auto const* label = ui_.centralwidget->findChild<QLabel*>(QString::fromLatin1(name));
        ASSERT_NE(label, nullptr);
        EXPECT_EQ(label->geometry(), geometry);
        EXPECT_EQ(label->text().toStdString(), text);
        EXPECT_EQ(label->alignment(), alignment);
    }
    EXPECT_EQ(ui_.instructionsLabel->minimumHeight(), 200);
}

TEST_F(MainWindowForm, IsFixedInSizeWithoutMenuAndStatusBar)
{
    EXPECT_EQ(window_.objectName().toStdString(), "MainWindow");
    EXPECT_EQ(ui_.centralwidget->objectName().toStdString(), "centralwidget");
    EXPECT_EQ(window_.centralWidget(), ui_.centralwidget);
    EXPECT_EQ(window_.windowTitle().toStdString(), "Kelvane firmware updater");
    EXPECT_EQ(window_.size(), QSize(665, 517));
    EXPECT_EQ(window_.minimumSize(), QSize(665, 517));
    EXPECT_EQ(window_.maximumSize(), QSize(665, 517));
    EXPECT_EQ(window_.findChild<QMenuBar*>(), nullptr);
    EXPECT_EQ(window_.findChild<QStatusBar*>(), nullptr);
}

TEST_F(MainWindowForm, DrawsTheFrameExactlyOverTheBarWithTheButtonLeftOfIt)
{
    EXPECT_EQ(ui_.progressBar->geometry(), QRect(148, 400, 477, 40));
    EXPECT_EQ(ui_.progressBar->format().toStdString(), "%p%");
    EXPECT_EQ(ui_.progressBar->value(), 24);
    EXPECT_EQ(ui_.progressBarFrame->styleSheet().toStdString(),
              "border: 1px solid white; border-radius: 3px;");
    auto const& children = ui_.centralwidget->children();
    EXPECT_TRUE(children.contains(ui_.progressBar));
    EXPECT_GT(children.indexOf(ui_.progressBarFrame), children.indexOf(ui_.progressBar));
    EXPECT_EQ(ui_.updateButton->geometry(), QRect(40, 400, 99, 40));
    EXPECT_EQ(ui_.updateButton->parentWidget(), ui_.centralwidget);
    EXPECT_EQ(ui_.updateButton->text().toStdString(), "UPDATE");
}

TEST_F(MainWindowForm, HasWhiteLabelsInActiveAndInactiveWindows)
{
    for (QLabel const* label : {ui_.instructionsLabel, ui_.productLabel, ui_.infoLabel}) {
        for (auto const group : {QPalette::Active, QPalette::Inactive}) {
            EXPECT_EQ(label->palette().color(group, QPalette::WindowText), QColor(Qt::white))
                << label->objectName().toStdString();
        }
    }
}
