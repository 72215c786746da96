#include "bundle_check/window_text.h"

#include <QFontMetrics>
#include <QImage>
#include <QLabel>
#include <QStringList>
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
    auto const alignment = label.alignment();
    label.resize(size);
    QPoint const moved(alignment.testFlag(Qt::AlignRight)     ? 2 * room.width()
                       : alignment.testFlag(Qt::AlignHCenter) ? room.width()
                                                              : 0,
                       alignment.testFlag(Qt::AlignBottom)    ? 2 * room.height()
                       : alignment.testFlag(Qt::AlignVCenter) ? room.height()
                                                              : 0);
    return FindInk(image).translated(-moved);
}

QString Cut(QString const& line, CutSide side)
{
    return side == CutSide::Begin ? line.mid(1)
           : side == CutSide::End ? line.chopped(1)
                                  : line.mid(1).chopped(line.size() > 1 ? 1 : 0);
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

// Of several lines, those that do not fit below each other.
int CountLostLines(QLabel const& label)
{
    auto const lines = static_cast<int>(label.text().count(QLatin1Char('\n')) + 1);
    auto const whole = label.height() / std::max(1, label.fontMetrics().lineSpacing());
    return lines == 1 ? 0 : std::max(1, lines - whole);
}

// What has to be free in one direction so that nothing is cut off.
int GetNeeded(int before, int after, int free, CutSide side)
{
    return side == CutSide::Begin ? free + before
           : side == CutSide::End ? free + after
                                  : free + 2 * std::max(before, after);
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
                          ? GetCutSide(label.alignment(), Qt::AlignRight, Qt::AlignHCenter)
                          : GetCutSide(label.alignment(), Qt::AlignBottom, Qt::AlignVCenter);
    fit.fits = std::max({left, right, above, below}) <= 0;
    fit.free = fit.is_width ? area.width() : area.height();
    fit.needed = fit.is_width ? GetNeeded(left, right, fit.free, side)
                              : GetNeeded(above, below, fit.free, side);
    if (!fit.fits && fit.is_width) {
        fit.line = FindWidestLine(label);
        fit.visible = FindVisible(label.fontMetrics(), fit.line, fit.free, side);
    } else if (!fit.fits) {
        fit.lost_lines = CountLostLines(label);
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
    }
    return fit;
}

}  // namespace bundle_check
