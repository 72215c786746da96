// No text of the demonstration is cut off: the form's places are fixed, so the fonts must fit.
#include <gtest/gtest.h>

#include <QFontDatabase>
#include <QFontMetrics>
#include <QMainWindow>
#include <QPixmap>

#include "tests/resources/demonstration_resources.h"
#include "ui_main_window.h"

namespace {

// The widgets' fonts, as the window sets them.
class TextsFit : public testing::Test {
protected:
    TextsFit()
    {
        ui_.setupUi(&window_);
        for (auto const& file : DemonstrationResources().entryList({QStringLiteral("*.otf")})) {
            QFontDatabase::addApplicationFont(DemonstrationResources().absoluteFilePath(file));
        }
    }

    static QFont Font(char const* style, int points)
    {
        return QFontDatabase::font(QStringLiteral("Kelvane Sans"), QString::fromLatin1(style),
                                   points);
    }

    QMainWindow window_;
    Ui::MainWindow ui_;
};

int CountDrawnPixels(QLabel& label)
{
    QImage image(label.size(), QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    label.render(&image, QPoint(), QRegion(), QWidget::RenderFlags());
    int drawn = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            drawn += qAlpha(image.pixel(x, y)) != 0 ? 1 : 0;
        }
    }
    return drawn;
}

// A label draws no more than its rectangle: what a larger one draws in addition was cut off.
testing::AssertionResult ShowsTheWholeText(QLabel& label, QFont const& font, QString const& text)
{
    label.setFont(font);
    label.setText(text);
    int const drawn = CountDrawnPixels(label);
    label.resize(label.width() + 400, label.height() + 200);
    int const drawn_with_room = CountDrawnPixels(label);
    if (drawn == 0) {
        return testing::AssertionFailure() << "nothing was drawn";
    }
    if (drawn != drawn_with_room) {
        return testing::AssertionFailure()
               << drawn_with_room - drawn << " of " << drawn_with_room << " pixels are cut off";
    }
    return testing::AssertionSuccess();
}

testing::AssertionResult FitsInside(QWidget const& widget, QFont const& font, QString const& text)
{
    QFontMetrics const metrics(font);
    QSize const needed(metrics.horizontalAdvance(text), metrics.height());
    if (needed.width() > widget.width() - 4 || needed.height() > widget.height()) {
        return testing::AssertionFailure()
               << needed.width() << " x " << needed.height() << " pixels needed";
    }
    return testing::AssertionSuccess();
}

}  // namespace

TEST_F(TextsFit, AreMeasuredAtTheUsualResolution)
{
    EXPECT_EQ(window_.logicalDpiX(), 96);
    EXPECT_EQ(window_.logicalDpiY(), 96);
}

TEST_F(TextsFit, FailsForATextThatIsTooWideOrTooHigh)
{
    EXPECT_FALSE(ShowsTheWholeText(*ui_.versionLabel, Font("Bold", 20),
                                   QStringLiteral("Version of the firmware")));
    EXPECT_FALSE(ShowsTheWholeText(*ui_.titleLabel, Font("Bold", 36), QStringLiteral("Up")));
}

TEST_F(TextsFit, InEveryLabel)
{
    struct {
        QLabel* label;
        QFont font;
        QString text;
    } const rows[] = {
        {ui_.titleLabel, Font("Bold", 20), ui_.titleLabel->text()},
        {ui_.versionLabel, Font("Bold", 20), ui_.versionLabel->text()},
        {ui_.productLabel, Font("Bold", 20), DemonstrationText(QStringLiteral("product_text"))},
        {ui_.typeLabel, Font("Bold", 20), QStringLiteral("Engineering")},
        {ui_.versionNumberLabel, Font("Bold", 20), DemonstrationText(QStringLiteral("fw_version"))},
        {ui_.instructionsLabel, Font("Regular", 12), ui_.instructionsLabel->text()},
        {ui_.instructionsLabel, Font("Regular", 12),
         DemonstrationText(QStringLiteral("instructions_text"))},
        {ui_.infoLabel, Font("Regular", 10), ui_.infoLabel->text()},
    };
    for (auto const& [label, font, text] : rows) {
        auto const place = label->size();
        EXPECT_TRUE(ShowsTheWholeText(*label, font, text)) << text.toStdString();
        label->resize(place);
    }
}

TEST_F(TextsFit, InTheButtonAndTheBar)
{
    for (char const* text : {"UPDATE", "UPDATING", "DONE"}) {
        EXPECT_TRUE(FitsInside(*ui_.updateButton, Font("Bold", 16), QString::fromLatin1(text)))
            << text;
    }
    for (char const* text :
         {"100%", "Erasing",
          "Error connecting to device — Disconnect device and repeat step 1-3"}) {
        EXPECT_TRUE(FitsInside(*ui_.progressBar, Font("Regular", 12), QString::fromUtf8(text)))
            << text;
    }
}
