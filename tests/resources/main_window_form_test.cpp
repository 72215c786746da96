// The window's form before any configuration: its widgets' places, texts and alignments. This is
// the only test that states places; others ask the window.
#include <gtest/gtest.h>

#include <QMainWindow>
#include <QMenuBar>
#include <QStatusBar>
#include <ostream>

#include "ui_main_window.h"

namespace {

constexpr Qt::Alignment kLeftMiddle = Qt::AlignLeft | Qt::AlignVCenter;
constexpr Qt::Alignment kLeftTop = Qt::AlignLeft | Qt::AlignTop;
constexpr Qt::Alignment kRightMiddle = Qt::AlignRight | Qt::AlignVCenter;

struct Form {
    Form() { ui.setupUi(&window); }

    QMainWindow window;
    Ui::MainWindow ui;
};

struct LabelRow {
    char const* name;
    QRect geometry;
    char const* text;
    Qt::Alignment alignment;
};

void PrintTo(LabelRow const& row, std::ostream* out)
{
    *out << row.name;
}

class FormLabel : public testing::TestWithParam<LabelRow> {};

LabelRow const kLabels[] = {
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
    {"infoLabel", {40, 478, 311, 31}, "Update requires cable with USB-C connector.", kLeftMiddle},
};

}  // namespace

TEST_P(FormLabel, HasItsPlaceTextAndAlignment)
{
    Form const form;
    LabelRow const& row = GetParam();

    auto const* label = form.ui.centralwidget->findChild<QLabel*>(QString::fromLatin1(row.name));
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(label->geometry(), row.geometry);
    EXPECT_EQ(label->text().toStdString(), row.text);
    EXPECT_EQ(label->alignment(), row.alignment);
}

INSTANTIATE_TEST_SUITE_P(EveryLabel, FormLabel, testing::ValuesIn(kLabels),
                         [](auto const& row) { return std::string(row.param.name); });

TEST(MainWindowForm, IsFixedInSizeWithoutMenuAndStatusBar)
{
    Form const form;

    EXPECT_EQ(form.window.objectName().toStdString(), "MainWindow");
    EXPECT_EQ(form.ui.centralwidget->objectName().toStdString(), "centralwidget");
    EXPECT_EQ(form.window.centralWidget(), form.ui.centralwidget);
    EXPECT_EQ(form.window.windowTitle().toStdString(), "Kelvane firmware updater");
    EXPECT_EQ(form.window.size(), QSize(665, 517));
    EXPECT_EQ(form.window.minimumSize(), QSize(665, 517));
    EXPECT_EQ(form.window.maximumSize(), QSize(665, 517));
    EXPECT_EQ(form.window.findChild<QMenuBar*>(), nullptr);
    EXPECT_EQ(form.window.findChild<QStatusBar*>(), nullptr);
}

TEST(MainWindowForm, DrawsTheFrameExactlyOverTheBar)
{
    Form const form;

    EXPECT_EQ(form.ui.progressBar->geometry(), QRect(148, 400, 477, 40));
    EXPECT_EQ(form.ui.progressBar->format().toStdString(), "%p%");
    EXPECT_EQ(form.ui.progressBar->value(), 24);
    EXPECT_EQ(form.ui.progressBarFrame->geometry(), form.ui.progressBar->geometry());
    EXPECT_EQ(form.ui.progressBarFrame->styleSheet().toStdString(),
              "border: 1px solid white; border-radius: 3px;");
    auto const& children = form.ui.centralwidget->children();
    EXPECT_TRUE(children.contains(form.ui.progressBar));
    EXPECT_GT(children.indexOf(form.ui.progressBarFrame), children.indexOf(form.ui.progressBar));
}

TEST(MainWindowForm, HasTheButtonLeftOfTheBar)
{
    Form const form;

    EXPECT_EQ(form.ui.updateButton->geometry(), QRect(40, 400, 99, 40));
    EXPECT_EQ(form.ui.updateButton->parentWidget(), form.ui.centralwidget);
    EXPECT_EQ(form.ui.updateButton->text().toStdString(), "UPDATE");
}

TEST(MainWindowForm, KeepsRoomForTheInstructions)
{
    Form const form;

    EXPECT_EQ(form.ui.instructionsLabel->minimumHeight(), 200);
}

TEST(MainWindowForm, HasWhiteLabelsInActiveAndInactiveWindows)
{
    Form const form;

    for (QLabel const* label :
         {form.ui.instructionsLabel, form.ui.productLabel, form.ui.infoLabel}) {
        for (auto const group : {QPalette::Active, QPalette::Inactive}) {
            EXPECT_EQ(label->palette().color(group, QPalette::WindowText), QColor(Qt::white))
                << label->objectName().toStdString();
        }
    }
}
