// How much of a text a label, a button or a bar shows.
#include "bundle_check/window_text.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>

using namespace Qt::StringLiterals;
using bundle_check::MeasureCentred;
using bundle_check::MeasureLabel;
using bundle_check::TextFit;

namespace {

class TextInLabel : public testing::Test {
protected:
    TextFit Measure(QString const& text, Qt::Alignment alignment, int width, int height)
    {
        label_.setText(text);
        label_.setAlignment(alignment);
        label_.resize(width, height);
        return MeasureLabel(label_);
    }

    QLabel label_;
};

}  // namespace

TEST_F(TextInLabel, LosesTheEndThatIsAwayFromItsAlignment)
{
    constexpr int kHigh = 60;
    auto const text = u"0123456789"_s;
    struct {
        Qt::Alignment alignment;
        bool keeps_begin;
        bool keeps_end;
    } const rows[] = {{Qt::AlignLeft, true, false},
                      {Qt::AlignRight, false, true},
                      {Qt::AlignHCenter, false, false}};
    for (auto const& [alignment, keeps_begin, keeps_end] : rows) {
        auto const fit = Measure(text, alignment | Qt::AlignVCenter, 40, kHigh);
        EXPECT_FALSE(fit.fits);
        EXPECT_TRUE(fit.is_width);
        EXPECT_EQ(fit.free, 40);
        EXPECT_GT(fit.needed, 40);
        EXPECT_EQ(fit.line, text);
        EXPECT_TRUE(text.contains(fit.visible) && fit.visible.size() > 1);
        EXPECT_EQ(fit.visible.startsWith(u'0'), keeps_begin) << fit.visible.toStdString();
        EXPECT_EQ(fit.visible.endsWith(u'9'), keeps_end) << fit.visible.toStdString();
        EXPECT_TRUE(Measure(text, alignment | Qt::AlignVCenter, fit.needed + 1, kHigh).fits);
        EXPECT_FALSE(Measure(text, alignment | Qt::AlignVCenter, fit.needed - 2, kHigh).fits);
    }
    Measure(text, Qt::AlignLeft, 50, kHigh);
    EXPECT_EQ(label_.size(), QSize(50, kHigh)) << "the label keeps its size";
}

TEST_F(TextInLabel, IsAtTheOtherSideIfItIsWrittenFromRightToLeft)
{
    auto const text = u"\u05D0\u05D1\u05D2\u05D3\u05D4\u05D5\u05D6\u05D7"_s;
    auto const fit = Measure(text, Qt::AlignLeft | Qt::AlignVCenter, 40, 60);
    EXPECT_FALSE(fit.fits);
    EXPECT_TRUE(text.startsWith(fit.visible) && !fit.visible.isEmpty())
        << fit.visible.toStdString();
    EXPECT_TRUE(Measure(text, Qt::AlignLeft | Qt::AlignVCenter, fit.needed + 2, 60).fits);
}

TEST_F(TextInLabel, LosesWholeCharacters)
{
    // Wider than what is drawn for half of such a character.
    auto const dominoes = u"\U0001F035\U0001F035\U0001F035\U0001F035"_s;
    for (auto const alignment : {Qt::AlignLeft, Qt::AlignRight, Qt::AlignHCenter}) {
        for (int width = 4; width < 80; ++width) {
            auto const fit = Measure(dominoes, alignment | Qt::AlignVCenter, width, 60);
            EXPECT_TRUE(fit.fits || (fit.visible.isValidUtf16() && fit.visible.size() < 8))
                << width;
        }
    }
    EXPECT_FALSE(Measure(dominoes, Qt::AlignLeft, 4, 60).fits);
}

TEST_F(TextInLabel, LosesItsLastLines)
{
    auto const line = label_.fontMetrics().lineSpacing();
    auto const at_top = Qt::AlignTop | Qt::AlignLeft;
    struct {
        QString text;
        int height;
        int lines;
        int lost;  // 0: fits
        QString first_lost;
    } const rows[] = {
        {u"a\nb\nc\nd"_s, 4 * line, 4, 0, {}},
        {u"a\nb\nc\nd"_s, 3 * line, 4, 1, u"d"_s},
        {u"a\nb\nc\nd"_s, 2 * line, 4, 2, u"c"_s},
        {u"a\nb\nc\ng"_s, 4 * line - 1, 4, 1, u"g"_s},  // only the edge of a letter
        {u"a\nb\nc\n \n"_s, 2 * line, 3, 1, u"c"_s},    // nobody misses empty lines
        {u"a\nb\n \n"_s, 2 * line, 2, 0, {}},
    };
    for (auto const& [text, height, lines, lost, first_lost] : rows) {
        auto const fit = Measure(text, at_top, 100, height);
        EXPECT_EQ(fit.fits, lost == 0) << text.toStdString();
        EXPECT_EQ(fit.lost_lines, lost) << text.toStdString() << height;
        EXPECT_EQ(label_.text(), text) << "the label keeps its text";
        if (lost > 0) {
            EXPECT_FALSE(fit.is_width);
            EXPECT_EQ(fit.lines, lines) << text.toStdString();
            EXPECT_EQ(fit.line, first_lost);
            EXPECT_EQ(fit.free, height);
            EXPECT_TRUE(Measure(text, at_top, 100, fit.needed).fits) << fit.needed;
            EXPECT_FALSE(Measure(text, at_top, 100, fit.needed - 1).fits) << fit.needed;
        }
    }
    EXPECT_EQ(Measure(u"a\n"_s, Qt::AlignVCenter | Qt::AlignLeft, 100, line).lost_lines, 2)
        << "all of a text in the middle moves";
}

TEST_F(TextInLabel, LosesTheEdgesOfItsOnlyLine)
{
    constexpr int kHigh = 6;
    auto const text = u"Ag"_s;
    struct {
        Qt::Alignment alignment;
        bool top;
        bool bottom;
    } const rows[] = {{Qt::AlignVCenter, true, true},
                      {Qt::AlignTop, false, true},
                      {Qt::AlignBottom, true, false}};
    for (auto const& [alignment, top, bottom] : rows) {
        auto const fit = Measure(text, alignment | Qt::AlignLeft, 100, kHigh);
        EXPECT_FALSE(fit.fits || fit.is_width);
        EXPECT_EQ(fit.lost_lines, 0);
        EXPECT_EQ(fit.loses_top, top);
        EXPECT_EQ(fit.loses_bottom, bottom);
        EXPECT_EQ(fit.free, kHigh);
        EXPECT_TRUE(Measure(text, alignment | Qt::AlignLeft, 100, fit.needed + 1).fits);
        EXPECT_FALSE(Measure(text, alignment | Qt::AlignLeft, 100, fit.needed - 2).fits);
    }
}

TEST_F(TextInLabel, ThatIsEmptyFits)
{
    EXPECT_TRUE(Measure({}, Qt::AlignLeft, 1, 1).fits);
    EXPECT_TRUE(Measure(u" \n "_s, Qt::AlignLeft, 1, 1).fits);
}

TEST(TextInTheMiddle, LosesBothEnds)
{
    QPushButton button;
    button.resize(40, 40);
    auto const fit = MeasureCentred(button, u"0123456789"_s);
    EXPECT_FALSE(fit.fits);
    EXPECT_EQ(fit.free, 40);
    EXPECT_GT(fit.needed, 40);
    EXPECT_FALSE(fit.visible.startsWith(u'0') || fit.visible.endsWith(u'9') ||
                 fit.visible.isEmpty());
    button.resize(fit.needed, 40);
    EXPECT_TRUE(MeasureCentred(button, u"0123456789"_s).fits);
    button.resize(fit.needed, 3);
    auto const low = MeasureCentred(button, u"0123456789"_s);
    EXPECT_FALSE(low.fits || low.is_width);
    EXPECT_TRUE(low.loses_top && low.loses_bottom);
}
