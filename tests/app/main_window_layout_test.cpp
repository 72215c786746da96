// The window's fonts, colours, pictures and configured texts. Where its widgets are is the form's
// business (tests/resources/main_window_form_test.cpp).
#include <gtest/gtest.h>

#include <QDir>
#include <QFontDatabase>
#include <QImage>
#include <QWindow>
#include <utility>

#include "tests/app/window_fixture.h"

using namespace Qt::StringLiterals;

namespace {

class MainWindowLayout : public WindowTest {
protected:
    void CopyProductFonts()
    {
        QDir const product(QStringLiteral(FW_DEMONSTRATION_RESOURCES));
        for (auto const& name : product.entryList({u"*.otf"_s}, QDir::Files)) {
            ASSERT_TRUE(QFile::copy(product.filePath(name), ini_.Path(name)));
        }
    }

    // The label's text has this colour, in active and inactive windows, and is drawn in it.
    void ExpectColour(char const* label, QColor const& colour)
    {
        SCOPED_TRACE(label);
        auto const palette = Label(label).palette();
        EXPECT_EQ(palette.color(QPalette::Active, QPalette::WindowText), colour);
        EXPECT_EQ(palette.color(QPalette::Inactive, QPalette::WindowText), colour);
        auto const image = Label(label).grab().toImage();
        int drawn = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                drawn += image.pixelColor(x, y) == colour ? 1 : 0;
            }
        }
        EXPECT_GT(drawn, 5);
    }
};

}  // namespace

TEST_F(MainWindowLayout, CannotBeResized)
{
    MakeWindow();
    auto const fixed = window_->size();
    window_->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window_.get()));

    for (auto const& size : {2 * fixed, fixed / 2}) {
        window_->resize(size);
        EXPECT_EQ(window_->size(), fixed);
    }

    // What a window manager uses when the user drags the frame.
    EXPECT_EQ(window_->windowHandle()->minimumSize(), fixed);
    EXPECT_EQ(window_->windowHandle()->maximumSize(), fixed);
    EXPECT_EQ(window_->centralWidget()->size(), fixed);
}

TEST_F(MainWindowLayout, ShowsTheConfiguredTexts)
{
    ini_.SetText(
        "window_title=\"Lumen, updater\"\ninstructions_text=\"1. Plug in\\n2. Reset\"\n"
        "product_text=Lumen\nfw_version=1.2.3\n");
    MakeWindow();

    EXPECT_EQ(window_->windowTitle(), u"Lumen, updater"_s);
    EXPECT_EQ(Label("instructionsLabel").text(), u"1. Plug in\n2. Reset"_s);
    EXPECT_EQ(Label("productLabel").text(), u"Lumen"_s);
    EXPECT_EQ(Label("versionNumberLabel").text(), u"1.2.3"_s);
}

TEST_F(MainWindowLayout, EmptiesTheLabelsOfAbsentTexts)
{
    MakeWindow();

    EXPECT_EQ(window_->windowTitle(), u"Kelvane firmware updater"_s);
    for (auto const* label : {"instructionsLabel", "productLabel", "versionNumberLabel"}) {
        EXPECT_EQ(Label(label).text(), QString()) << label;
    }
}

TEST_F(MainWindowLayout, ReadsTheSettingsDuringItsConstructionOnly)
{
    {
        IniFile ini("product_text=Lumen\nproduct_list=Lumen:10c4:ea60\n");
        window_ =
            std::make_unique<MainWindow>(ini.Directory(), ini.Settings(), dfu_util_, TargetUart,
                                         std::make_unique<FakeBackend>(record_), environment_);
    }

    EXPECT_EQ(Label("productLabel").text(), u"Lumen"_s);
    EXPECT_EQ(window_->readBinaries().keys(), QStringList({u"Lumen"_s}));
}

TEST_F(MainWindowLayout, ShowsTheTargetTypeInYellowExceptToCustomers)
{
    CopyProductFonts();
    std::pair<char const*, char const*> const rows[] = {
        {"service", "Service"}, {"beta test", "Beta test"}, {"xYZ", "XYZ"},   {"s", "S"},
        {"customer", ""},       {"Customer", ""},           {"CUSTOMER", ""}, {"", ""}};
    for (auto const& [configured, shown] : rows) {
        ini_.SetText(QByteArray("fw_target_type=") + configured + "\n");
        MakeWindow();

        EXPECT_EQ(Label("typeLabel").text().toStdString(), shown) << configured;
        if (!Label("typeLabel").text().isEmpty()) {
            ExpectColour("typeLabel", Qt::yellow);
        }
    }
}

TEST_F(MainWindowLayout, ShowsTheOtherTextsInWhite)
{
    CopyProductFonts();
    ini_.SetText("product_text=Lumen\nfw_version=8.8\ninstructions_text=Instructions\n");
    MakeWindow();

    for (auto const* label : {"titleLabel", "versionLabel", "versionNumberLabel", "productLabel",
                              "instructionsLabel", "infoLabel"}) {
        ExpectColour(label, Qt::white);
    }
}

TEST_F(MainWindowLayout, StretchesThePictureOverTheWholeWindow)
{
    QImage picture(8, 8, QImage::Format_RGB32);
    picture.fill(Qt::red);
    ASSERT_TRUE(picture.save(ini_.Path(u"picture.png"_s)));
    MakeWindow();

    EXPECT_EQ(window_->styleSheet(), u"#centralwidget {\nborder-image: url("_s +
                                         ini_.Path(u"picture.png"_s) +
                                         u") 0 0 0 0 stretch stretch;\n}\n"_s);
    auto const image = window_->grab().toImage();
    auto const inside = window_->rect().adjusted(1, 1, -1, -1);
    for (auto const& point : {inside.topLeft(), inside.topRight(), inside.bottomLeft(),
                              inside.bottomRight(), QPoint(inside.center().x(), 250)}) {
        EXPECT_EQ(image.pixelColor(point), QColor(Qt::red)) << point.x() << ", " << point.y();
    }
}

TEST_F(MainWindowLayout, HasItsOwnIconOnWindowsOnly)
{
    ASSERT_TRUE(QFile::copy(QStringLiteral(FW_DEMONSTRATION_RESOURCES "/AppIcon.ico"),
                            ini_.Path(u"AppIcon.ico"_s)));
    std::pair<QString, bool> const rows[] = {{u"windows"_s, true},
                                             {u"Windows"_s, true},
                                             {u"macos"_s, false},
                                             {u"debian"_s, false},
                                             {u"windows11"_s, false}};
    for (auto const& [product_type, has_icon] : rows) {
        environment_.product_type = product_type;
        MakeWindow();

        EXPECT_EQ(window_->windowIcon().isNull(), !has_icon) << product_type.toStdString();
    }
}

TEST_F(MainWindowLayout, UsesTheProductsFonts)
{
    struct {
        char const* widget;
        char const* style;
        int size;
    } const rows[] = {
        {"titleLabel", "Bold", 20},   {"versionLabel", "Bold", 20},
        {"productLabel", "Bold", 20}, {"versionNumberLabel", "Bold", 20},
        {"typeLabel", "Bold", 20},    {"instructionsLabel", "Regular", 12},
        {"infoLabel", "Regular", 10}, {"progressBar", "Regular", 12},
        {"updateButton", "Bold", 16},
    };
    CopyProductFonts();
    ini_.SetText("fw_target_type=service\n");
    MakeWindow();
    ASSERT_TRUE(QFontDatabase::families().contains(u"Kelvane Sans"_s));

    for (auto const& [widget, style, size] : rows) {
        SCOPED_TRACE(widget);
        auto const font = Find<QWidget>(widget).font();
        EXPECT_EQ(font.family(), u"Kelvane Sans"_s);
        EXPECT_EQ(font.styleName().toStdString(), style);
        EXPECT_EQ(font.pointSize(), size);
        EXPECT_EQ(font.hintingPreference(), QFont::PreferDefaultHinting);
    }
}

TEST_F(MainWindowLayout, ReadsTheImageOfEveryProductThatHasOne)
{
    ini_.SetText("product_list=Lumen:10c4:ea60, Flash:0483:df11, Halo:1:2\n");
    QByteArray const image("\x00\x01\x0D\x0A\xFF", 5);
    ini_.Write(u"Lumen.bin"_s, image);
    ini_.Write(u"Halo.bin"_s, {});
    ini_.Write(u"Other.bin"_s, "other");
    MakeWindow();

    EXPECT_EQ(window_->readBinaries(),
              (QMap<QString, QByteArray>{{u"Flash"_s, {}}, {u"Halo"_s, {}}, {u"Lumen"_s, image}}));
}

TEST_F(MainWindowLayout, ReadsNoImageWithoutProducts)
{
    MakeWindow();

    EXPECT_TRUE(window_->readBinaries().isEmpty());
}
