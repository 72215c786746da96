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

TEST_F(TextInLabel, LosesLinesOrTheEdgeOfItsOnlyLine)
{
    auto const line = label_.fontMetrics().lineSpacing();
    auto const lines = Measure(u"a\nb\nc\nd"_s, Qt::AlignTop | Qt::AlignLeft, 100, 3 * line);
    EXPECT_FALSE(lines.fits);
    EXPECT_FALSE(lines.is_width);
    EXPECT_EQ(lines.lost_lines, 1);
    EXPECT_EQ(lines.free, 3 * line);
    EXPECT_GT(lines.needed, 3 * line);
    auto const edge = Measure(u"Ag"_s, Qt::AlignVCenter | Qt::AlignLeft, 100, 6);
    EXPECT_FALSE(edge.fits);
    EXPECT_FALSE(edge.is_width);
    EXPECT_EQ(edge.lost_lines, 0);
    EXPECT_EQ(edge.free, 6);
    EXPECT_TRUE(Measure(u"Ag"_s, Qt::AlignVCenter | Qt::AlignLeft, 100, edge.needed + 1).fits);
    EXPECT_FALSE(Measure(u"Ag"_s, Qt::AlignVCenter | Qt::AlignLeft, 100, edge.needed - 2).fits);
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
    EXPECT_FALSE(MeasureCentred(button, u"0123456789"_s).fits);
}
