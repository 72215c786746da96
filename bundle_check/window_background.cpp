// The background picture: the file, and what the window makes of it.
#include <fcntl.h>
#include <unistd.h>

#include <QFileInfo>
#include <QImageReader>
#include <QLabel>
#include <QStringList>
#include <algorithm>
#include <cmath>
#include <vector>

#include "bundle_check/files.h"
#include "bundle_check/window_checks.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

QStringList ListPictures(QDir const& resources)
{
    return ListFiles(resources, u"*.png"_s);
}

bool IsTransparent(QImage const& picture)
{
    if (!picture.hasAlphaChannel()) {
        return false;
    }
    auto const pixels = picture.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < pixels.height(); ++y) {
        auto const* const line = reinterpret_cast<QRgb const*>(pixels.constScanLine(y));
        if (std::any_of(line, line + pixels.width(),
                        [](QRgb pixel) { return qAlpha(pixel) != 255; })) {
            return true;
        }
    }
    return false;
}

// Warns about a picture that the window shows, but not as it is.
void CheckPicture(QString const& name, QImage const& picture, QSize const& window,
                  Findings& findings)
{
    // The picture is stretched to the window's shape; a hundredth cannot be seen.
    constexpr double kMostStretch = 0.01;
    auto const size = u"%1 has %2 x %3 pixels"_s.arg(Quote(name), QString::number(picture.width()),
                                                     QString::number(picture.height()));
    auto const window_size = u"%1 x %2"_s.arg(window.width()).arg(window.height());
    auto const stretch = static_cast<double>(picture.width()) * window.height() /
                         (static_cast<double>(picture.height()) * window.width());
    if (picture.width() < window.width() || picture.height() < window.height()) {
        findings.Warn(
            {},
            u"%1, so the window (%2) enlarges it; use a picture of that size, or twice as many "
            "pixels for screens of high resolution."_s.arg(size, window_size));
    } else if (std::abs(stretch - 1) > kMostStretch) {
        findings.Warn({},
                      u"%1, another shape than the window's %2, so the window distorts it; cut "
                      "it to that shape."_s.arg(size, window_size));
    }
    if (IsTransparent(picture)) {
        findings.Warn({},
                      u"%1 has transparent parts that show the window's own colour, which differs "
                      "from system to system; save it without transparency."_s.arg(Quote(name)));
    }
}

// Relative luminance and contrast of the Web Content Accessibility Guidelines (WCAG 2.1).
double GetLuminance(QRgb colour)
{
    auto const linear = [](int channel) {
        auto const value = channel / 255.0;
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(qRed(colour)) + 0.7152 * linear(qGreen(colour)) +
           0.0722 * linear(qBlue(colour));
}

double GetContrast(double first, double second)
{
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

// Level AA for text.
constexpr double kLeastContrast = 4.5;

// The contrast that all but the worst twentieth of the pixels behind the label's text have.
double MeasureContrast(QLabel& label, QImage const& background)
{
    constexpr size_t kWorst = 20;
    QImage text(label.size(), QImage::Format_ARGB32_Premultiplied);
    text.fill(Qt::transparent);
    label.render(&text, QPoint(), QRegion(), QWidget::RenderFlags());
    auto const luminance = GetLuminance(label.palette().color(QPalette::WindowText).rgb());
    auto const place = label.mapTo(label.window(), QPoint());
    std::vector<double> contrasts;
    for (int y = 0; y < text.height(); ++y) {
        auto const* const line = reinterpret_cast<QRgb const*>(text.constScanLine(y));
        for (int x = 0, width = text.width(); x < width; ++x) {
            if (qAlpha(line[x]) != 0) {
                contrasts.push_back(
                    GetContrast(luminance, GetLuminance(background.pixel(place + QPoint(x, y)))));
            }
        }
    }
    if (contrasts.empty()) {
        return kLeastContrast;
    }
    auto const worst = contrasts.begin() + static_cast<ptrdiff_t>(contrasts.size() / kWorst);
    std::nth_element(contrasts.begin(), worst, contrasts.end());
    return *worst;
}

void CheckContrast(WindowView& view, QImage const& background, QString const& picture,
                   Findings& findings)
{
    QStringList faint;
    for (auto* label : view.Labels()) {
        if (label->text().isEmpty()) {
            continue;
        }
        if (auto const contrast = MeasureContrast(*label, background); contrast < kLeastContrast) {
            faint.append(
                u"%1 at (%2, %3) %4 : 1"_s.arg(Quote(label->text()), QString::number(label->x()),
                                               QString::number(label->y()), FormatBelow(contrast)));
        }
    }
    if (!faint.isEmpty()) {
        findings.Fail({},
                      u"%1 is too light behind the texts. They need a contrast of at least %2 : 1, "
                      "but have: %3. Make it dark and opaque there."_s.arg(
                          picture, QString::number(kLeastContrast), faint.join(u", "_s)));
    }
}

// The style sheet takes the picture's path; if it could not, the window would show its own colour.
bool ShowsPicture(QImage const& background, QImage const& picture)
{
    constexpr int kMostDifference = 24;  // of 255, on average over a cell
    constexpr QSize kCells(16, 12);
    auto const shrink = [&](QImage const& image) {
        return image.convertToFormat(QImage::Format_RGB32)
            .scaled(kCells, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    };
    auto const shown = shrink(background);
    auto const expected = shrink(picture);
    for (int y = 0; y < kCells.height(); ++y) {
        for (int x = 0; x < kCells.width(); ++x) {
            auto const difference = qGray(shown.pixel(x, y)) - qGray(expected.pixel(x, y));
            if (std::abs(difference) > kMostDifference) {
                return false;
            }
        }
    }
    return true;
}

// Discards what is written to the standard error output as long as it lives: the PNG decoder prints
// there by itself, past Qt's messages.
class SilentErrorOutput {
public:
    SilentErrorOutput() : saved_(dup(STDERR_FILENO)), nowhere_(open("/dev/null", O_WRONLY))
    {
        if (saved_ >= 0 && nowhere_ >= 0) {
            dup2(nowhere_, STDERR_FILENO);
        }
    }
    ~SilentErrorOutput()
    {
        if (saved_ >= 0) {
            dup2(saved_, STDERR_FILENO);
            close(saved_);
        }
        if (nowhere_ >= 0) {
            close(nowhere_);
        }
    }
    Q_DISABLE_COPY_MOVE(SilentErrorOutput)

private:
    int saved_;
    int nowhere_;
};

struct Picture {
    QImage image;   // null if it cannot be shown
    QString fault;  // why
};

Picture ReadPicture(QString const& path)
{
    SilentErrorOutput const silent;
    QImageReader reader(path);
    reader.setDecideFormatFromContent(true);
    auto const image = reader.read();
    return {image, image.isNull() ? reader.errorString() : QString()};
}

// False if the file is no picture that can be shown. The window would try again and again.
bool CheckFormat(QString const& name, QString const& path, Findings& findings)
{
    auto const head = ReadHead(path, 8);
    bool const is_png = head && *head == "\x89PNG\r\n\x1A\n";
    auto const [image, fault] = ReadPicture(path);
    if (!image.isNull() && !is_png) {
        findings.Warn({},
                      u"%1 is not a PNG file, and may not be shown on every computer; save it as "
                      "PNG."_s.arg(Quote(name)));
    } else if (image.isNull()) {
        findings.Fail({}, (is_png ? u"%1 is damaged (%2), so the window has no picture; save it "
                                    "again as PNG."_s.arg(Quote(name), fault)
                                  : u"%1 is not a PNG file, so the window has no picture; save "
                                    "the picture as PNG."_s.arg(Quote(name))));
    }
    return !image.isNull();
}

}  // namespace

QString FormatBelow(double value)
{
    return QString::number(std::floor(value * 10) / 10, 'f', 1);
}

bool CheckPictures(QDir const& resources, Findings& findings)
{
    auto const pictures = ListPictures(resources);
    if (pictures.isEmpty()) {
        auto const others = resources.entryList({u"*.jpg"_s, u"*.jpeg"_s, u"*.bmp"_s, u"*.gif"_s,
                                                 u"*.webp"_s, u"*.svg"_s, u"*.tif"_s, u"*.tiff"_s},
                                                QDir::Files, QDir::Name);
        findings.Warn(
            {},
            u"There is no PNG file in the Resources folder, so the window has no background. %1"_s
                .arg(others.isEmpty() ? u"Add one."_s
                                      : u"Save %1 as PNG."_s.arg(Quote(others.first()))));
    } else if (pictures.size() > 1) {
        findings.Warn(
            {},
            u"There are %1 PNG files in the Resources folder (%2), and any one of them may "
            "become the background; keep one."_s.arg(pictures.size())
                .arg(QuoteAll(pictures)));
    }
    bool are_safe = true;
    for (auto const& name : pictures) {
        auto const path = resources.filePath(name);
        if (IsTooLarge(path)) {
            are_safe = false;
            findings.Fail(
                {},
                u"%1 has %2 bytes, far more than a background picture; save it again "
                "with fewer pixels."_s.arg(Quote(name), QString::number(QFileInfo(path).size())));
        }
    }
    for (auto const& name : pictures.mid(0, are_safe ? 1 : 0)) {
        auto const path = resources.filePath(name);
        CheckLink({}, resources, path, findings);
        are_safe = CheckFormat(name, path, findings);
    }
    return are_safe;
}

void CheckBackground(QDir const& resources, WindowView& view, Findings& findings)
{
    auto const background = view.DrawBackground();
    auto const pictures = ListPictures(resources);
    for (auto const& name : pictures.mid(0, 1)) {
        auto const picture = ReadPicture(resources.filePath(name)).image;
        CheckPicture(name, picture, view.Size(), findings);
        if (pictures.size() == 1 && !picture.hasAlphaChannel() &&
            !ShowsPicture(background, picture)) {
            findings.Fail({},
                          u"The window does not show %1: Qt's style sheet cannot take its path, "
                          "%2. Use letters, digits and spaces only."_s.arg(
                              Quote(name), Quote(resources.absoluteFilePath(name))));
        }
    }
    auto const picture = pictures.size() == 1 ? Quote(pictures.first()) : u"The background"_s;
    CheckContrast(view, background, picture, findings);
}

}  // namespace bundle_check
