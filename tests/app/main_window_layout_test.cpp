// What is where in the window, in which font and colour, and with which of the configured texts.
#include <gtest/gtest.h>

#include <QDir>
#include <QFontDatabase>
#include <QImage>
#include <QWindow>
#include <ostream>
#include <utility>

#include "tests/app/window_fixture.h"

using namespace Qt::StringLiterals;

namespace {

class MainWindowLayout : public WindowTest {
protected:
    void Configure(QByteArray const& text) { ini_.SetText(text); }

    void CopyProductFonts()
    {
        QDir const product(QStringLiteral(FW_DEMONSTRATION_RESOURCES));
        for (auto const& name : product.entryList({u"*.otf"_s}, QDir::Files)) {
            ASSERT_TRUE(QFile::copy(product.filePath(name), ini_.Path(name)));
        }
    }

    void MakePicture(QString const& name, QColor const& colour)
    {
        QImage picture(8, 8, QImage::Format_RGB32);
        picture.fill(colour);
        ASSERT_TRUE(picture.save(ini_.Path(name)));
    }

    QColor TextColour(char const* label, QPalette::ColorGroup group = QPalette::Active)
    {
        return Label(label).palette().color(group, QPalette::WindowText);
    }
};

struct Place {
    char const* name;
    char const* type;
    QRect geometry;
};

void PrintTo(Place const& place, std::ostream* out)
{
    *out << place.name;
}

class MainWindowPlaces : public MainWindowLayout, public testing::WithParamInterface<Place> {};

struct Font {
    char const* widget;
    char const* style;
    int size;
};

void PrintTo(Font const& font, std::ostream* out)
{
    *out << font.widget;
}

class MainWindowFonts : public MainWindowLayout, public testing::WithParamInterface<Font> {};

// How many pixels of the widget, as drawn, have exactly this colour.
int CountPixels(QWidget& widget, QColor const& colour)
{
    auto const image = widget.grab().toImage();
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            count += image.pixelColor(x, y) == colour ? 1 : 0;
        }
    }
    return count;
}

}  // namespace

TEST_P(MainWindowPlaces, HoldEachWidgetWhereItBelongs)
{
    MakeWindow();

    auto const* widget = window_->findChild<QWidget*>(QString::fromLatin1(GetParam().name));

    ASSERT_NE(widget, nullptr);
    EXPECT_STREQ(widget->metaObject()->className(), GetParam().type);
    EXPECT_EQ(widget->geometry(), GetParam().geometry);
    EXPECT_EQ(widget->parentWidget(), window_->centralWidget());
}

INSTANTIATE_TEST_SUITE_P(EveryWidget, MainWindowPlaces,
                         testing::Values(Place{"titleLabel", "QLabel", {40, 30, 201, 21}},
                                         Place{"productLabel", "QLabel", {40, 55, 201, 21}},
                                         Place{"typeLabel", "QLabel", {40, 80, 181, 21}},
                                         Place{"progressBar", "QProgressBar", {148, 400, 477, 40}},
                                         Place{"updateButton", "QPushButton", {40, 400, 99, 40}},
                                         Place{"instructionsLabel", "QLabel", {40, 160, 201, 231}},
                                         Place{"versionNumberLabel", "QLabel", {560, 55, 58, 16}},
                                         Place{"versionLabel", "QLabel", {520, 30, 101, 16}},
                                         Place{"progressBarFrame", "QLabel", {148, 400, 477, 40}},
                                         Place{"infoLabel", "QLabel", {40, 478, 311, 31}}),
                         [](auto const& row) { return std::string(row.param.name); });

TEST_F(MainWindowLayout, NamesTheWindowAndItsCentre)
{
    MakeWindow();

    EXPECT_EQ(window_->objectName(), u"MainWindow"_s);
    ASSERT_NE(window_->centralWidget(), nullptr);
    EXPECT_EQ(window_->centralWidget()->objectName(), u"centralwidget"_s);
    EXPECT_EQ(window_->parent(), nullptr);
}

TEST_F(MainWindowLayout, CannotBeResized)
{
    MakeWindow();
    window_->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
    QSize const fixed(665, 517);

    window_->resize(900, 700);
    EXPECT_EQ(window_->size(), fixed);
    window_->resize(10, 10);
    EXPECT_EQ(window_->size(), fixed);

    // What a window manager goes by when the user drags the frame.
    EXPECT_EQ(window_->windowHandle()->minimumSize(), fixed);
    EXPECT_EQ(window_->windowHandle()->maximumSize(), fixed);
    EXPECT_EQ(window_->centralWidget()->size(), fixed);
}

TEST_F(MainWindowLayout, KeepsTheFormsAlignmentsAndTexts)
{
    MakeWindow();

    EXPECT_EQ(Label("titleLabel").text(), u"Firmware upgrade"_s);
    EXPECT_EQ(Label("versionLabel").text(), u"Version"_s);
    EXPECT_EQ(Label("infoLabel").text(), u"Update requires cable with USB-C connector."_s);
    EXPECT_EQ(Label("progressBarFrame").text(), QString());
    EXPECT_EQ(Label("instructionsLabel").alignment(), Qt::AlignLeft | Qt::AlignTop);
    EXPECT_EQ(Label("instructionsLabel").minimumHeight(), 200);
    EXPECT_EQ(Label("versionLabel").alignment(), Qt::AlignRight | Qt::AlignVCenter);
    EXPECT_EQ(Label("versionNumberLabel").alignment(), Qt::AlignRight | Qt::AlignVCenter);
}

TEST_F(MainWindowLayout, DrawsTheFrameOverTheBar)
{
    MakeWindow();

    EXPECT_EQ(Label("progressBarFrame").styleSheet(),
              u"border: 1px solid white; border-radius: 3px;"_s);
    auto const children = window_->centralWidget()->children();
    EXPECT_GT(children.indexOf(&Label("progressBarFrame")), children.indexOf(&Bar()));
}

TEST_F(MainWindowLayout, ShowsTheConfiguredTexts)
{
    Configure(
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
    EXPECT_EQ(Label("instructionsLabel").text(), QString());
    EXPECT_EQ(Label("productLabel").text(), QString());
    EXPECT_EQ(Label("versionNumberLabel").text(), QString());
    EXPECT_EQ(Label("typeLabel").text(), QString());
}

TEST_F(MainWindowLayout, ReadsTheSettingsDuringItsConstructionOnly)
{
    auto backend = std::make_unique<FakeBackend>(record_);
    {
        IniFile ini("product_text=Lumen\nproduct_list=Lumen:10c4:ea60\n");
        window_ = std::make_unique<MainWindow>(ini.Directory(), ini.Settings(), dfu_util_,
                                               TargetUart, std::move(backend), environment_);
    }

    EXPECT_EQ(Label("productLabel").text(), u"Lumen"_s);
    EXPECT_EQ(window_->readBinaries().keys(), QStringList({u"Lumen"_s}));
}

TEST_F(MainWindowLayout, ShowsTheTargetTypeInYellowWithACapital)
{
    CopyProductFonts();
    std::pair<char const*, char const*> const rows[] = {
        {"service", "Service"}, {"beta test", "Beta test"}, {"xYZ", "XYZ"}, {"s", "S"}};
    for (auto const& [configured, shown] : rows) {
        Configure(QByteArray("fw_target_type=") + configured + "\n");
        MakeWindow();

        EXPECT_EQ(Label("typeLabel").text().toStdString(), shown);
        EXPECT_EQ(TextColour("typeLabel"), QColor(Qt::yellow));
        EXPECT_EQ(TextColour("typeLabel", QPalette::Inactive), QColor(Qt::yellow));
        EXPECT_GT(CountPixels(Label("typeLabel"), Qt::yellow), 5) << shown;
    }
}

TEST_F(MainWindowLayout, SaysNothingOfATypeForCustomers)
{
    for (auto const* type : {"customer", "Customer", "CUSTOMER", "cUsToMeR", ""}) {
        Configure(QByteArray("fw_target_type=") + type + "\n");
        MakeWindow();

        EXPECT_EQ(Label("typeLabel").text(), QString()) << type;
    }
}

TEST_F(MainWindowLayout, WritesItsTextsInWhite)
{
    CopyProductFonts();
    Configure("product_text=Lumen\nfw_version=8.8\ninstructions_text=Instructions\n");
    MakeWindow();

    for (auto const* label : {"titleLabel", "versionLabel", "versionNumberLabel", "productLabel",
                              "instructionsLabel", "infoLabel"}) {
        EXPECT_EQ(TextColour(label), QColor(Qt::white)) << label;
        EXPECT_EQ(TextColour(label, QPalette::Inactive), QColor(Qt::white)) << label;
        EXPECT_GT(CountPixels(Label(label), Qt::white), 5) << label;
    }
}

TEST_F(MainWindowLayout, StretchesThePictureOverTheWholeWindow)
{
    MakePicture(u"picture.png"_s, Qt::red);
    MakeWindow();

    EXPECT_EQ(window_->styleSheet(), u"#centralwidget {\nborder-image: url("_s +
                                         ini_.Path(u"picture.png"_s) +
                                         u") 0 0 0 0 stretch stretch;\n}\n"_s);
    auto const image = window_->grab().toImage();
    for (auto const& point :
         {QPoint(1, 1), QPoint(663, 1), QPoint(1, 515), QPoint(663, 515), QPoint(330, 250)}) {
        EXPECT_EQ(image.pixelColor(point), QColor(Qt::red)) << point.x() << ", " << point.y();
    }
}

TEST_F(MainWindowLayout, LeavesItsBackgroundAloneWithoutAPicture)
{
    ASSERT_TRUE(ini_.Directory().mkdir(u"directory.png"_s));
    MakeWindow();

    EXPECT_EQ(window_->styleSheet(), QString());
    EXPECT_EQ(window_->grab().toImage().pixelColor(1, 1),
              window_->palette().color(QPalette::Window));
}

TEST_F(MainWindowLayout, HasAnIconOfItsOwnOnWindowsOnly)
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

TEST_P(MainWindowFonts, AreThoseOfTheProduct)
{
    CopyProductFonts();
    Configure("fw_target_type=service\n");
    MakeWindow();
    ASSERT_TRUE(QFontDatabase::families().contains(u"Kelvane Sans"_s));

    auto const font = window_->findChild<QWidget*>(QString::fromLatin1(GetParam().widget))->font();

    EXPECT_EQ(font.family(), u"Kelvane Sans"_s);
    EXPECT_EQ(font.styleName().toStdString(), GetParam().style);
    EXPECT_EQ(font.pointSize(), GetParam().size);
    EXPECT_EQ(font.hintingPreference(), QFont::PreferDefaultHinting);
}

INSTANTIATE_TEST_SUITE_P(
    EveryText, MainWindowFonts,
    testing::Values(Font{"titleLabel", "Bold", 20}, Font{"versionLabel", "Bold", 20},
                    Font{"productLabel", "Bold", 20}, Font{"versionNumberLabel", "Bold", 20},
                    Font{"typeLabel", "Bold", 20}, Font{"instructionsLabel", "Regular", 12},
                    Font{"infoLabel", "Regular", 10}, Font{"progressBar", "Regular", 12},
                    Font{"updateButton", "Bold", 16}),
    [](auto const& row) { return std::string(row.param.widget); });

TEST_F(MainWindowLayout, ReadsTheImageOfEveryProductThatHasOne)
{
    Configure("product_list=Lumen:10c4:ea60, Flash:0483:df11, Halo:1:2\n");
    ini_.Write(u"Lumen.bin"_s, QByteArray("\x00\x01\x0D\x0A\xFF", 5));
    ini_.Write(u"Halo.bin"_s, {});
    ini_.Write(u"Other.bin"_s, "other");
    MakeWindow();

    EXPECT_EQ(window_->readBinaries(),
              (QMap<QString, QByteArray>{{u"Flash"_s, {}},
                                         {u"Halo"_s, {}},
                                         {u"Lumen"_s, QByteArray("\x00\x01\x0D\x0A\xFF", 5)}}));
}

TEST_F(MainWindowLayout, ReadsNoImageWithoutProducts)
{
    MakeWindow();

    EXPECT_TRUE(window_->readBinaries().isEmpty());
}
