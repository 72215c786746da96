// The background picture: shown wherever the bundle lies, and what is shown without it.
#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QMessageBox>

#include "tests/app/window_fixture.h"
#include "tests/support/collected_log.h"

using namespace Qt::StringLiterals;

namespace {

class BackgroundPicture : public WindowTest {
protected:
    // A red picture in a resource directory of that name; its path.
    QString MakePicture(QString const& directory, QString const& name = u"picture.png"_s)
    {
        resources_ = QDir(ini_.Directory().path() + u'/' + directory);
        EXPECT_TRUE(resources_.mkpath(u"."_s));
        QImage picture(8, 8, QImage::Format_RGB32);
        picture.fill(Qt::red);
        auto const path = resources_.absoluteFilePath(name);
        EXPECT_TRUE(picture.save(path));
        return path;
    }

    void ShowWindow()
    {
        window_ =
            std::make_unique<MainWindow>(resources_, ini_.Settings(), dfu_util_, TargetUart,
                                         std::make_unique<FakeBackend>(record_), environment_);
        window_->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
    }

    QColor GetBackground() { return window_->grab().toImage().pixelColor(1, 1); }

    void ExpectReadableTexts()
    {
        EXPECT_LT(GetBackground().lightness(), 32);
        auto const light = QApplication::palette().color(QPalette::Window);
        EXPECT_EQ(QMessageBox(window_.get()).palette().color(QPalette::Window), light);
    }

    QDir resources_ = ini_.Directory();
};

QString GetSpecifiedText(QString const& path)
{
    return u"#centralwidget {\nborder-image: url("_s + path + u") 0 0 0 0 stretch stretch;\n}\n"_s;
}

}  // namespace

TEST_F(BackgroundPicture, OfAnOrdinaryPathHasTheUsualStyleSheet)
{
    for (auto const& directory : {u"bundle"_s, u"Kelvane Updater 2.app"_s, u"a  b"_s, u" c "_s,
                                  u"A-b_c.d~e+f,g=h:i"_s, u"MacOS/../Resources"_s}) {
        SCOPED_TRACE(directory.toStdString());
        auto const path = MakePicture(directory);

        ShowWindow();

        EXPECT_EQ(window_->styleSheet(), GetSpecifiedText(path));
        EXPECT_EQ(GetBackground(), QColor(Qt::red));
    }
}

TEST_F(BackgroundPicture, IsShownWhateverCharactersItsPathHas)
{
    for (auto const& odd :
         {u"é"_s,  u"ö"_s,  u"ü"_s,     u"ß"_s,    u"\u65E5"_s, u"\U0001F600"_s, u"\u00A0"_s,
          u"'"_s,  u"\""_s, u"&"_s,     u"$"_s,    u"^"_s,      u"%"_s,          u"%41"_s,
          u"("_s,  u")"_s,  u"(1)"_s,   u"["_s,    u"]"_s,      u"{"_s,          u"}"_s,
          u"/*"_s, u"*"_s,  u"/*a*/"_s, u"\\"_s,   u"\\\\"_s,   u"\\65"_s,       u"\\\""_s,
          u"#"_s,  u"@"_s,  u"?"_s,     u"<!--"_s, u";"_s,      u"!"_s,          u"|"_s,
          u"`"_s,  u"\t"_s, u"\n"_s,    u"\r"_s,   u"\f"_s,     u"\x01"_s,       u");}"_s}) {
        for (auto const& directory : {odd, u"a"_s + odd + u"b"_s, u"0"_s + odd, odd + u"0"_s}) {
            SCOPED_TRACE(directory.toStdString());
            MakePicture(directory);

            ShowWindow();

            EXPECT_EQ(GetBackground(), QColor(Qt::red));
        }
    }
}

TEST_F(BackgroundPicture, IsShownWhateverItsOwnName)
{
    MakePicture(u"."_s, u"Jürgen's \"picture\".png"_s);

    ShowWindow();

    EXPECT_EQ(GetBackground(), QColor(Qt::red));
}

TEST_F(BackgroundPicture, ThatIsNotThereLeavesTheTextsReadable)
{
    ASSERT_TRUE(ini_.Directory().mkdir(u"directory.png"_s));
    ShowWindow();

    EXPECT_EQ(window_->styleSheet(), QString());
    ExpectReadableTexts();
}

TEST_F(BackgroundPicture, ThatCannotBeShownIsNamedInTheLogAndLeavesTheTextsReadable)
{
    ini_.Write(u"picture.png"_s, "not a picture");
    CollectedLog log;

    ShowWindow();

    EXPECT_EQ(log.Warnings(), (std::vector{"W: the background picture cannot be shown: " +
                                           ini_.Path(u"picture.png"_s).toStdString()}));
    EXPECT_EQ(window_->styleSheet(), GetSpecifiedText(ini_.Path(u"picture.png"_s)));
    ExpectReadableTexts();
}
