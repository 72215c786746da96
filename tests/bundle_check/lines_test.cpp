// What is said of the lines of config.ini, whatever their values.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QFile>
#include <QRegularExpression>
#include <QSet>

#include "bundle_check/config_keys.h"
#include "bundle_check/ini_lines.h"
#include "tests/bundle_check/bundle_folder.h"

using namespace Qt::StringLiterals;
using bundle_check::ScanIni;

namespace {

// LINE:SECTION/KEY=VALUE of each entry.
std::vector<std::string> Scan(QByteArray const& text)
{
    std::vector<std::string> entries;
    for (auto const& entry : ScanIni(text).entries) {
        entries.push_back((QString::number(entry.line) + u':' + entry.section + u'/' + entry.key +
                           u'=' + QString::fromUtf8(entry.value))
                              .toStdString());
    }
    return entries;
}

}  // namespace

using testing::ElementsAre;
using testing::IsEmpty;

TEST(IniLines, CountFromOneWhateverEndsThem)
{
    EXPECT_THAT(Scan("a=1\nb = 2 \r\n\r\n\n  c=3\rd=4"),
                ElementsAre("1:/a=1", "2:/b=2", "5:/c=3", "6:/d=4"));
    EXPECT_THAT(Scan("\xEF\xBB\xBF"
                     "a=1"),
                ElementsAre("1:/a=1"));
    EXPECT_THAT(Scan(""), IsEmpty());
}

TEST(IniLines, PassOverComments)
{
    EXPECT_THAT(Scan("; a=1\n;\n  ; b=2\nc=3 ; d=4\n"), ElementsAre("4:/c=3"));
}

TEST(IniLines, BelongToTheSectionAboveThem)
{
    EXPECT_THAT(Scan("a=1\n[Window]\nb=2\n[ GENERAL ]\nc=3\n[open\nd=4"),
                ElementsAre("1:/a=1", "3:Window/b=2", "5:/c=3", "7:open/d=4"));
}

TEST(IniLines, GoOnInsideQuotationMarksAndBehindABackslash)
{
    EXPECT_THAT(Scan("a=\"x\ny;=\"\nb=1\\\r\n2\nc=\"\\\"\n\"\nd=4"),
                ElementsAre("1:/a=\"x\ny;=\"", "3:/b=1\\\r\n2", "5:/c=\"\\\"\n\"", "7:/d=4"));
}

TEST(IniLines, EndAnywhereWithoutHarm)
{
    QByteArray const text("a=\"x\\\r\ny\";z\n[s]\n=\n\\");
    for (qsizetype length = 0; length <= text.size(); ++length) {
        for (auto const& entry : ScanIni(text.left(length)).entries) {
            EXPECT_GE(entry.last_line, entry.line) << length;
        }
    }
    EXPECT_EQ(ScanIni(text).entries.size(), 2);
}

TEST(KeyTable, HoldsTheKeysThatTheProgramReads)
{
    QFile source(QStringLiteral(FW_SOURCE_DIR "/app/startup_config.cpp"));
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    static QRegularExpression const literal(u"settings(?:\\.value\\(|, )\"(\\w+)\""_s);
    QSet<QString> read;
    auto matches = literal.globalMatch(QString::fromUtf8(source.readAll()));
    while (matches.hasNext()) {
        read.insert(matches.next().captured(1));
    }

    QSet<QString> known;
    for (auto const& rule : bundle_check::kKeyRules) {
        known.insert(QString::fromLatin1(rule.name));
    }
    EXPECT_EQ(known, read);
}

TEST(CleanBundle, HasNoFindings)
{
    BundleFolder bundle;
    EXPECT_TRUE(FindsNothing(bundle));
    bundle.UseUsb();
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(CleanBundle, ForMcubootHasNoFindings)
{
    BundleFolder bundle;
    bundle.UseMcuboot();
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(UnknownKey, IsToldWithItsLine)
{
    BundleFolder bundle;
    bundle.Set("colour", "red");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:14: warning: The key \"colour\" is not one that the "
                          "program knows, and is ignored."));
}

TEST(UnknownKey, ThatDiffersInCaseIsToldSo)
{
    BundleFolder bundle;
    bundle.Set("Window_Title", "x");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:14: warning: The key \"Window_Title\" is not one that the "
                          "program knows, and is ignored. Large and small letters make a "
                          "difference: the key is window_title."));
}

TEST(UnknownKey, ThatIsNearlyAKnownOneIsGuessed)
{
    BundleFolder bundle;
    bundle.Set("programing-adress", "1");
    EXPECT_TRUE(Finds(bundle,
                      "config.ini:14: warning: The key \"programing-adress\" is not one "
                      "that the program knows, and is ignored. Was programming_address "
                      "meant?"));
}

TEST(HashSign, DoesNotBeginAComment)
{
    BundleFolder bundle;
    bundle.Set("# colour", "red");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:14: warning: \"# colour\" is read as a key: a comment "
                          "begins with a semicolon"));
}

TEST(LineWithoutEqualsSign, IsTold)
{
    BundleFolder bundle;
    bundle.SetConfig("colour red\n");
    EXPECT_TRUE(Finds(bundle, "config.ini:1: warning: \"colour red\" has no \"=\""));
}

TEST(KeyInASection, IsNotSeenByTheProgram)
{
    BundleFolder bundle;
    bundle.Remove("fw_version");
    bundle.Set("[Window]\nfw_version", "1.0");
    EXPECT_TRUE(Finds(bundle,
                      "config.ini:15: warning: fw_version: The key stands in the section "
                      "\"[Window]\", where the program does not see it"));
    EXPECT_TRUE(Finds(bundle, "config.ini: warning: fw_version: The key is missing"));
}

TEST(KeyInASection, IsSeenInTheGeneralOne)
{
    BundleFolder bundle;
    bundle.Remove("fw_version");
    bundle.Set("[General]\nfw_version", "1.0");
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(KeyThatStandsTwice, IsToldAtItsSecondLine)
{
    BundleFolder bundle;
    bundle.Set("; \nfw_version", "2.0");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:15: warning: fw_version: The key stood in line 13 "
                          "already; the last one counts."));
}

TEST(KeyThatStandsTwice, CountsWithItsLastValue)
{
    BundleFolder bundle;
    bundle.Set("; \notp_size", "x");
    EXPECT_TRUE(Finds(bundle, "config.ini:15: error: otp_size: The program reads \"x\" as 0"));
}

TEST(OpenQuotationMark, SwallowsTheRestOfTheFile)
{
    BundleFolder bundle;
    bundle.Set("product_text", "\"Lumen");
    EXPECT_TRUE(Finds(bundle,
                      "config.ini:12: error: product_text: A quotation mark is not closed: "
                      "all that follows in the file, to line 13,"));
}

TEST(ValueOverSeveralLines, IsTold)
{
    BundleFolder bundle;
    bundle.Set("product_text", "\"Lumen\nTwo\"");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:12: warning: product_text: The value goes on to line "
                          "13;"));
}

TEST(Backslash, BeforeAnOrdinaryLetterIsTold)
{
    BundleFolder bundle;
    bundle.Set("product_text", "Lumen \\Q two");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:12: warning: product_text: \"\\Q\" is no escape "
                          "sequence"));
    bundle.Set("product_text", "\"a\\n\\t\\\\Q\\x41\"");
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(UnquotedSemicolon, EndsAText)
{
    BundleFolder bundle;
    bundle.Set("product_text", "Lumen; two");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:12: warning: product_text: An unquoted semicolon ends "
                          "the value: the program reads \"Lumen\""));
}

TEST(UnquotedSemicolon, BehindANumberIsAComment)
{
    BundleFolder bundle;
    bundle.Set("otp_size", "512 ; bytes");
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(ValueThatBeginsWithAtSign, IsNotGivenToTheReader)
{
    for (auto const* value : {"@Variant(\\0\\0)", "\"@Size(1 2)\"", "a, @x", "\\x40x", "\\0100x",
                              "\\\n @x", "\"\"@x"}) {
        BundleFolder bundle;
        bundle.Set("product_text", value);
        EXPECT_TRUE(
            Finds(bundle, "config.ini:12: error: product_text: The value begins with \"@\""))
            << value;
    }
}

TEST(ValueThatBeginsWithAtSign, IsOrdinaryWhenItIsDoubled)
{
    BundleFolder bundle;
    bundle.Set("product_text", "@@home");
    EXPECT_TRUE(FindsNothing(bundle));
    bundle.Set("product_text", "a@b \\x41");
    EXPECT_TRUE(FindsNothing(bundle));
}
