#include "bundle_check/window_text.h"

#include <QFontMetrics>
#include <QImage>
#include <QLabel>
#include <QStringList>
#include <QStyle>
#include <algorithm>

namespace bundle_check {

namespace {

enum class CutSide { Begin, End, Both };

QRect FindInk(QImage const& image)
{
    constexpr int kVisible = 64;  // of 255; fainter edges of letters do not count
    QRect ink;
    for (int y = 0; y < image.height(); ++y) {
        auto const* const line = reinterpret_cast<QRgb const*>(image.constScanLine(y));
        for (int x = 0, width = image.width(); x < width; ++x) {
            if (qAlpha(line[x]) >= kVisible) {
                ink |= QRect(x, y, 1, 1);
            }
        }
    }
    return ink;
}

// A text that is written from right to left is at the other side.
Qt::Alignment GetAlignment(QLabel const& label)
{
    auto const direction = label.text().isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight;
    return QStyle::visualAlignment(direction, label.alignment());
}

// Where the label's text is, relative to its rectangle, if nothing cuts it off.
QRect FindInkWithRoom(QLabel& label)
{
    auto const size = label.size();
    auto const metrics = label.fontMetrics();
    // More than the text needs on each side.
    auto const text = metrics.size(Qt::TextExpandTabs, label.text());
    QSize const room(text.width() + metrics.height(), text.height() + metrics.height());
    label.resize(size + 2 * room);
    QImage image(label.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    label.render(&image, QPoint(), QRegion(), QWidget::RenderFlags());
    auto const alignment = GetAlignment(label);
    label.resize(size);
    QPoint const moved(alignment.testFlag(Qt::AlignRight)     ? 2 * room.width()
                       : alignment.testFlag(Qt::AlignHCenter) ? room.width()
                                                              : 0,
                       alignment.testFlag(Qt::AlignBottom)    ? 2 * room.height()
                       : alignment.testFlag(Qt::AlignVCenter) ? room.height()
                                                              : 0);
    return FindInk(image).translated(-moved);
}

// Without the character at that side, which may be two of Qt's.
QString Cut(QString const& line, CutSide side)
{
    auto const first = line.size() > 1 && line.front().isHighSurrogate() ? 2 : 1;
    auto const last = line.size() > 1 && line.back().isLowSurrogate() ? 2 : 1;
    return side == CutSide::Begin ? line.mid(first)
           : side == CutSide::End ? line.chopped(last)
                                  : line.mid(first).chopped(line.size() > first ? last : 0);
}

QString KeepWhatFits(QFontMetrics const& metrics, QString line, int width, CutSide side)
{
    while (!line.isEmpty() && metrics.size(Qt::TextExpandTabs, line).width() > width) {
        line = Cut(line, side);
    }
    return line;
}

QString FindWidestLine(QLabel const& label)
{
    auto const lines = label.text().split(QLatin1Char('\n'));
    auto const metrics = label.fontMetrics();
    return std::ranges::max(lines, {}, [&](QString const& line) {
        return metrics.size(Qt::TextExpandTabs, line).width();
    });
}

// At least one character less than the line: it is known not to fit.
QString FindVisible(QFontMetrics const& metrics, QString const& line, int width, CutSide side)
{
    return KeepWhatFits(metrics, Cut(line, side), width, side);
}

// Of lines that begin at the label's top.
qsizetype CountWholeLines(QLabel& label, QStringList const& lines)
{
    auto const text = label.text();
    qsizetype whole = 0;
    qsizetype too_many = lines.size();
    while (whole + 1 < too_many) {
        auto const count = (whole + too_many) / 2;
        label.setText(lines.mid(0, count).join(QLatin1Char('\n')));
        bool const fits = FindInkWithRoom(label).bottom() <= label.rect().bottom();
        (fits ? whole : too_many) = count;
    }
    label.setText(text);
    return whole;
}

// For a text that is known to need more height.
void CountLines(QLabel& label, TextFit& fit)
{
    bool const is_at_top = label.alignment().testFlag(Qt::AlignTop);
    auto lines = label.text().split(QLatin1Char('\n'));
    while (is_at_top && lines.size() > 1 && lines.last().trimmed().isEmpty()) {
        lines.removeLast();
    }
    fit.lines = static_cast<int>(lines.size());
    if (!is_at_top) {
        fit.lost_lines = fit.lines > 1 ? fit.lines : 0;
    } else if (fit.lines > 1 && fit.loses_bottom) {
        auto const whole = CountWholeLines(label, lines);
        fit.line = lines[whole];
        fit.lost_lines = fit.lines - static_cast<int>(whole);
    }
}

// What has to be free in one direction so that nothing is cut off.
int GetNeeded(int before, int after, int free, CutSide side)
{
    return side == CutSide::Begin ? free + before
           : side == CutSide::End ? free + after
                                  : free + 2 * std::max(before, after);
}

// Which end of the text is at that side.
CutSide GetEnd(QString const& text, CutSide side)
{
    return !text.isRightToLeft()    ? side
           : side == CutSide::Begin ? CutSide::End
           : side == CutSide::End   ? CutSide::Begin
                                    : side;
}

CutSide GetCutSide(Qt::Alignment alignment, Qt::Alignment at_end, Qt::Alignment centred)
{
    return (alignment & at_end) != 0    ? CutSide::Begin
           : (alignment & centred) != 0 ? CutSide::Both
                                        : CutSide::End;
}

}  // namespace

TextFit MeasureLabel(QLabel& label)
{
    auto const ink = FindInkWithRoom(label);
    auto const area = label.rect();
    if (ink.isEmpty()) {
        return {};
    }
    // How far the text reaches beyond each side; negative: not at all.
    auto const left = area.left() - ink.left();
    auto const right = ink.right() - area.right();
    auto const above = area.top() - ink.top();
    auto const below = ink.bottom() - area.bottom();
    TextFit fit;
    fit.is_width = std::max(left, right) >= std::max(above, below);
    auto const side = fit.is_width
                          ? GetCutSide(GetAlignment(label), Qt::AlignRight, Qt::AlignHCenter)
                          : GetCutSide(label.alignment(), Qt::AlignBottom, Qt::AlignVCenter);
    fit.fits = std::max({left, right, above, below}) <= 0;
    fit.free = fit.is_width ? area.width() : area.height();
    fit.needed = fit.is_width ? GetNeeded(left, right, fit.free, side)
                              : GetNeeded(above, below, fit.free, side);
    if (!fit.fits && fit.is_width) {
        fit.line = FindWidestLine(label);
        auto const end = GetEnd(label.text(), side);
        fit.visible = FindVisible(label.fontMetrics(), fit.line, fit.free, end);
    } else if (!fit.fits) {
        fit.loses_top = above > 0;
        fit.loses_bottom = below > 0;
        CountLines(label, fit);
    }
    return fit;
}

TextFit MeasureCentred(QWidget const& widget, QString const& text)
{
    auto const metrics = widget.fontMetrics();
    auto const ink = metrics.tightBoundingRect(text).size();
    TextFit fit;
    fit.is_width = ink.width() - widget.width() >= ink.height() - widget.height();
    fit.free = fit.is_width ? widget.width() : widget.height();
    fit.needed = fit.is_width ? ink.width() : ink.height();
    fit.fits = fit.needed <= fit.free;
    if (!fit.fits && fit.is_width) {
        fit.line = text;
        fit.visible = FindVisible(metrics, text, fit.free, CutSide::Both);
    } else if (!fit.fits) {
        fit.loses_top = true;
        fit.loses_bottom = true;
    }
    return fit;
}

}  // namespace bundle_check
