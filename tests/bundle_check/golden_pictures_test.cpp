// The window of the demonstration products in every state against pictures that a person has looked
// at, in tests/bundle_check/pictures/: PRODUCT-waiting.png is the whole window, the others are what
// changes of it, button and bar. A difference is saved as pictures, to the build folder; when it is
// wanted, the picture that was drawn replaces the one that was expected.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QSettings>
#include <QTemporaryDir>

#include "bundle_check/window_view.h"
#include "config/bundle_paths.h"
#include "config/startup_config.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;
using bundle_check::WindowView;

namespace {

// The tolerance. The mean of each colour over a cell may differ by so much. Versions of Qt,
// FreeType and the fonts' source draw edges of letters differently, and move them by a pixel or
// two; a text that is missing or elsewhere, a wrong colour or another picture differ by far more.
constexpr int kCell = 20;        // pixels of the window
constexpr int kMostOfMean = 20;  // of 255

struct Product {
    char const* name;
    char const* bundle;
};

constexpr Product kProducts[] = {FW_GOLDEN_PRODUCTS};

QRect const kChanging(0, 390, 665, 60);

QRgb GetMean(QImage const& image, QRect const& cell)
{
    int red = 0;
    int green = 0;
    int blue = 0;
    for (int y = cell.top(); y <= cell.bottom(); ++y) {
        auto const* const line = reinterpret_cast<QRgb const*>(image.constScanLine(y));
        for (int x = cell.left(); x <= cell.right(); ++x) {
            red += qRed(line[x]);
            green += qGreen(line[x]);
            blue += qBlue(line[x]);
        }
    }
    int const count = cell.width() * cell.height();
    return qRgb(red / count, green / count, blue / count);
}

int GetDifference(QRgb first, QRgb second)
{
    return std::max({std::abs(qRed(first) - qRed(second)), std::abs(qGreen(first) - qGreen(second)),
                     std::abs(qBlue(first) - qBlue(second))});
}

// The cells that differ too much.
QList<QRect> FindDifferences(QImage const& expected, QImage const& drawn)
{
    QList<QRect> cells;
    for (int y = 0; y < expected.height(); y += kCell) {
        for (int x = 0; x < expected.width(); x += kCell) {
            auto const cell = QRect(x, y, kCell, kCell) & expected.rect();
            if (GetDifference(GetMean(expected, cell), GetMean(drawn, cell)) > kMostOfMean) {
                cells.append(cell);
            }
        }
    }
    return cells;
}

// One pixel for each of the window.
QImage ToWindowSize(QImage const& image, QSize const& size)
{
    auto plain = image.convertToFormat(QImage::Format_RGB32);
    plain.setDevicePixelRatio(1);
    return plain.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

QImage LoadExpected(QString const& product, QString const& state)
{
    QDir const pictures(QStringLiteral(FW_GOLDEN_PICTURES));
    auto const load = [&](QString const& name) {
        return QImage(pictures.filePath(u"%1-%2.png"_s.arg(product, name)))
            .convertToFormat(QImage::Format_RGB32);
    };
    auto expected = load(u"waiting"_s);
    if (state != u"waiting"_s && !expected.isNull()) {
        auto const changing = load(state);
        if (changing.isNull()) {
            return {};
        }
        QPainter(&expected).drawImage(kChanging.topLeft(), changing);
    }
    return expected;
}

// With the cells that differ in red frames.
void SavePictures(QString const& name, bool is_whole, QImage const& drawn,
                  QList<QRect> const& differences)
{
    QDir const folder(QStringLiteral(FW_DIFFERENT_PICTURES));
    ASSERT_TRUE(folder.mkpath(u"."_s));
    ASSERT_TRUE((is_whole ? drawn : drawn.copy(kChanging)).save(folder.filePath(name + u".png"_s)));
    auto marked = drawn;
    QPainter painter(&marked);
    painter.setPen(Qt::red);
    for (auto const& cell : differences) {
        painter.drawRect(cell.adjusted(0, 0, -1, -1));
    }
    painter.end();
    ASSERT_TRUE(marked.save(folder.filePath(name + u"-difference.png"_s)));
}

testing::AssertionResult LooksLike(QString const& product, QString const& state,
                                   QImage const& picture, QString const& kind)
{
    auto const expected = LoadExpected(product, state);
    auto const drawn = ToWindowSize(picture, expected.isNull() ? QSize(665, 517) : expected.size());
    auto const differences =
        expected.isNull() ? QList<QRect>{drawn.rect()} : FindDifferences(expected, drawn);
    if (differences.isEmpty()) {
        return testing::AssertionSuccess();
    }
    auto const name = u"%1-%2"_s.arg(product, state);
    SavePictures(kind.isEmpty() ? name : name + u'-' + kind, state == u"waiting"_s, drawn,
                 differences);
    return testing::AssertionFailure()
           << name.toStdString() << ' ' << kind.toStdString() << ": " << differences.size()
           << " cells differ; see " FW_DIFFERENT_PICTURES;
}

// A demonstration product's window.
class ProductWindow {
public:
    explicit ProductWindow(QString const& resources)
        : resources_(resources),
          settings_(GetConfigPath(resources_), QSettings::IniFormat),
          view_(resources_, settings_, ReadInterfaceType(settings_))
    {}

    WindowView& View() { return view_; }

private:
    QDir resources_;
    QSettings settings_;
    WindowView view_;
};

}  // namespace

TEST(GoldenPictures, ShowEveryStateOfEveryProductAtBothSizes)
{
    for (auto const& [name, bundle] : kProducts) {
        auto const product = QString::fromLatin1(name);
        ProductWindow window(QString::fromUtf8(bundle) + u"/Contents/Resources"_s);
        window.View().SetDpi(FW_STAGED_DPI);
        EXPECT_GE(window.View().States().size(), 6);
        for (auto const& state : window.View().States()) {
            window.View().Enter(state);
            EXPECT_TRUE(LooksLike(product, state, window.View().Draw(1), {}));
            EXPECT_TRUE(LooksLike(product, state, window.View().Draw(2), u"2x"_s));
        }
    }
}

TEST(GoldenPictures, AreTheSameOnBothSystemsWithTheFontsForEach)
{
    constexpr std::pair<int, char const*> kFonts[] = {{bundle_check::kMacosDpi, FW_FONTS_72},
                                                      {bundle_check::kOtherDpi, FW_FONTS_96}};
    for (auto const& [dpi, fonts] : kFonts) {
        QTemporaryDir const folder;
        QDir const staged(QString::fromUtf8(kProducts[0].bundle) + u"/Contents/Resources"_s);
        for (auto const& file : staged.entryList(QDir::Files)) {
            QDir const source(file.endsWith(u".otf"_s) ? QString::fromUtf8(fonts) : staged.path());
            ASSERT_TRUE(QFile::copy(source.filePath(file), folder.filePath(file)));
        }
        ProductWindow window(folder.path());
        auto const product = QString::fromLatin1(kProducts[0].name);
        window.View().SetDpi(dpi);
        EXPECT_TRUE(LooksLike(product, u"waiting"_s, window.View().Draw(1), u"fonts"_s)) << dpi;
        window.View().SetDpi(bundle_check::kMacosDpi + bundle_check::kOtherDpi - dpi);
        EXPECT_FALSE(LooksLike(product, u"waiting"_s, window.View().Draw(1), u"other-system"_s))
            << "the fonts for " << dpi << " dpi on the other system";
    }
}

TEST(GoldenPictures, DifferFromAWindowWithOneTextLessOrAnotherColour)
{
    auto const product = QString::fromLatin1(kProducts[0].name);
    auto const expected = LoadExpected(product, u"waiting"_s);
    ASSERT_FALSE(expected.isNull());
    ProductWindow window(QString::fromUtf8(kProducts[0].bundle) + u"/Contents/Resources"_s);
    window.View().SetDpi(FW_STAGED_DPI);
    auto const drawn = ToWindowSize(window.View().Draw(1), expected.size());
    auto const background = ToWindowSize(window.View().DrawBackground(), expected.size());
    EXPECT_EQ(FindDifferences(expected, drawn).size(), 0);
    // The two smallest texts, the button, and the frame's left edge.
    for (auto const& part :
         {QRect(580, 55, 40, 17), QRect(40, 486, 230, 16), QRect(40, 400, 99, 40)}) {
        auto without = drawn;
        QPainter(&without).drawImage(part.topLeft(), background, part);
        EXPECT_GE(FindDifferences(expected, without).size(), 1) << part.x() << ' ' << part.y();
    }
    window.View().Enter(u"ready"_s);
    auto const ready = ToWindowSize(window.View().Draw(1), expected.size());
    EXPECT_GE(FindDifferences(expected, ready).size(), 1) << "black letters instead of grey ones";
}
