#include "tests/end_to_end/window_reader.h"

#include <QApplication>
#include <QPalette>
#include <QSettings>
#include <algorithm>
#include <cstdlib>
#include <ostream>

#include "tests/support/fake_backend.h"

namespace {

QString ErrorFormat()
{
    return *GetWindowChange(WindowEvent::UpdateFailed, TargetUart).progress_format;
}

QImage Normalise(QImage const& image)
{
    return image.convertToFormat(QImage::Format_RGB32);
}

// The bar's gradient comes out a shade different now and then, from one drawing to the next.
bool IsAlikePixel(QRgb a, QRgb b)
{
    constexpr int kTolerance = 8;
    return std::abs(qRed(a) - qRed(b)) <= kTolerance &&
           std::abs(qGreen(a) - qGreen(b)) <= kTolerance &&
           std::abs(qBlue(a) - qBlue(b)) <= kTolerance;
}

// Both in the format of Normalise.
bool IsAlike(QImage const& a, QImage const& b)
{
    if (a.size() != b.size()) {
        return false;
    }
    for (int y = 0; y < a.height(); ++y) {
        auto const* const row_a = reinterpret_cast<QRgb const*>(a.constScanLine(y));
        auto const* const row_b = reinterpret_cast<QRgb const*>(b.constScanLine(y));
        if (!std::equal(row_a, row_a + a.width(), row_b, IsAlikePixel)) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, Screen const& screen)
{
    return stream << screen.button.toStdString() << ' '
                  << (screen.style == ButtonStyle::Ready ? "black" : "grey") << ", "
                  << screen.progress << " \"" << screen.format.toStdString() << '"';
}

void DrawAsTheProgramDoes()
{
    QApplication::setStyle(QStringLiteral("fusion"));
    auto palette = QApplication::palette();
    for (int role = 0; role < QPalette::NColorRoles; ++role) {
        auto const colour_role = static_cast<QPalette::ColorRole>(role);
        palette.setBrush(QPalette::Inactive, colour_role,
                         palette.brush(QPalette::Active, colour_role));
    }
    QApplication::setPalette(palette);
}

WindowReader::WindowReader(QDir const& resources, QString const& config_path)
{
    QSettings const settings(config_path, QSettings::IniFormat);
    WindowEnvironment const environment{
        .list_serial_ports = [] { return QList<SerialPortEntry>(); },
        .product_type = QStringLiteral("debian"),
        .intervals = {},
    };
    window_ = std::make_unique<MainWindow>(resources, settings, QString(), TargetUart,
                                           std::make_unique<FakeBackend>(), environment);
    button_ = window_->findChild<QPushButton*>(QStringLiteral("updateButton"));
    bar_ = window_->findChild<QProgressBar*>(QStringLiteral("progressBar"));
}

WindowReader::~WindowReader() = default;

std::optional<Screen> WindowReader::Read(QImage const& picture)
{
    Screen screen;
    if (picture.size() != window_->size() || !ReadButton(picture, screen) ||
        !ReadBar(picture, screen)) {
        return std::nullopt;
    }
    return screen;
}

QRect WindowReader::PlaceOf(QWidget const* widget) const
{
    return {widget->mapTo(window_.get(), QPoint()), widget->size()};
}

QImage WindowReader::Draw(Screen const& screen, QWidget const* widget)
{
    auto& picture = widget == button_ ? buttons_[{screen.button, screen.style}]
                                      : bars_[{screen.format, screen.progress}];
    if (picture.isNull()) {
        button_->setText(screen.button);
        button_->setStyleSheet(GetButtonStyleSheet(screen.style));
        bar_->setValue(screen.progress);
        bar_->setFormat(screen.format);
        picture = Normalise(window_->grab(PlaceOf(widget)).toImage());
    }
    return picture;
}

bool WindowReader::ReadButton(QImage const& picture, Screen& screen)
{
    auto const shown = Normalise(picture.copy(PlaceOf(button_)));
    for (auto const* text : {"UPDATE", "UPDATING", "DONE"}) {
        for (auto const style : {ButtonStyle::Disabled, ButtonStyle::Ready}) {
            screen.button = QString::fromLatin1(text);
            screen.style = style;
            if (IsAlike(Draw(screen, button_), shown)) {
                return true;
            }
        }
    }
    return false;
}

bool WindowReader::ReadBar(QImage const& picture, Screen& screen)
{
    auto const shown = Normalise(picture.copy(PlaceOf(bar_)));
    for (auto const& format :
         {QStringLiteral(""), QStringLiteral("%p%"), QStringLiteral("Erasing"), ErrorFormat()}) {
        for (int progress = 0; progress <= 100; ++progress) {
            screen.progress = progress;
            screen.format = format;
            if (IsAlike(Draw(screen, bar_), shown)) {
                return true;
            }
        }
    }
    return false;
}
