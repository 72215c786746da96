// What is said of the lines of config.ini, whatever their values.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QSettings>
#include <QTemporaryDir>
#include <iterator>
#include <map>
#include <random>

#include "bundle_check/config_keys.h"
#include "bundle_check/ini_lines.h"
#include "tests/bundle_check/bundle_folder.h"

using namespace Qt::StringLiterals;
using bundle_check::DecodeIniKey;
using bundle_check::DecodeIniValue;
using bundle_check::ScanIni;

namespace {

// LINE:SECTION/KEY=VALUE of each entry.
std::vector<std::string> Scan(QByteArray const& text)
{
    std::vector<std::string> entries;
    for (auto const& entry : ScanIni(text).entries) {
        entries.push_back((QString::number(entry.line) + u':' + entry.section.value_or(QString()) +
                           u'/' + entry.key + u'=' + QString::fromUtf8(entry.value))
                              .toStdString());
    }
    return entries;
}

using Values = std::map<QString, QStringList>;

// Other names cannot be asked for: QSettings makes them regular first.
bool IsRegular(QString const& name)
{
    return !name.isEmpty() && !name.startsWith(u'/') && !name.endsWith(u'/') &&
           !name.contains(u"//"_s);
}

Values ReadHere(QByteArray const& text)
{
    static QRegularExpression const doubled(u"^@@"_s);
    Values values;
    for (auto const& entry : ScanIni(text).entries) {
        if (IsRegular(entry.FullName())) {
            values[entry.FullName()] = entry.decoded.elements;
            // A doubled "@" is QSettings' way to begin an ordinary text with one.
            values[entry.FullName()].replaceInStrings(doubled, u"@"_s);
        }
    }
    return values;
}

Values ReadByQSettings(QString const& path, QByteArray const& text)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
    file.close();
    QSettings const settings(path, QSettings::IniFormat);
    Values values;
    for (auto const& name : settings.allKeys()) {
        if (IsRegular(name)) {
            values[name] = settings.value(name).toStringList();
        }
    }
    return values;
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

TEST(IniLines, OfASectionWithoutANameBelongToNoOther)
{
    auto const entries = ScanIni("[]\na=1\n[%General]\na=2\n[General]\na=3\nA%42\\c=4").entries;
    std::vector<std::string> names;
    for (auto const& entry : entries) {
        names.push_back(entry.FullName().toStdString());
    }
    EXPECT_THAT(names, ElementsAre("/a", "General/a", "a", "AB/c"));
}

TEST(IniKey, HasItsPercentCodesDecoded)
{
    EXPECT_EQ(DecodeIniKey("fw%5Fversion"), u"fw_version"_s);
    EXPECT_EQ(DecodeIniKey("%U20ACa%5f"), u"\u20ACa_"_s);
    EXPECT_EQ(DecodeIniKey("a%5"), u"a%5"_s);
    EXPECT_EQ(DecodeIniKey("%U005%zz%%41"), u"%U005%zz%A"_s);
    EXPECT_EQ(DecodeIniKey("a\\b%"), u"a/b%"_s);
}

TEST(IniValue, HasMixedQuotesWhenSomeOfAnElementIsOutsideThem)
{
    for (auto const* value : {"a \"b\" c", "\"a\" b", "a\"b\"", "\"a\"\"b\"", "x, \"a\" b",
                              "\"a\"\\n", "\"a \"b\" c\""}) {
        EXPECT_TRUE(DecodeIniValue(value).mixed_quotes) << value;
    }
    for (auto const* value : {"", "a b", " \"a, b\" ", "\"a\", b, \"c\"", "\"a \\\"b\\\" c\"",
                              "a \\\"b\\\" c", "\"\""}) {
        EXPECT_FALSE(DecodeIniValue(value).mixed_quotes) << value;
    }
}

// What stands here decides what may reach QSettings, so it has to take every file apart as
// QSettings does: texts and lists of a thousand files of pieces that matter to either.
TEST(IniReading, AgreesWithQSettings)
{
    constexpr int kFiles = 1000;
    constexpr int kPieces = 12;
    static constexpr char const* kParts[] = {
        "a",   "b",          "=",   "=",           "\n",   "\n",     "\r\n", ",",
        ";",   "\"",         "\"",  " ",           "\t",   "\\",     "\\x",  "\\x40",
        "\\0", "\\1000",     "\\n", "\\\\",        "\\\"", "40",     "@",    "x)",
        "[b]", "[%General]", "[]",  "[General]\n", "%41",  "%U0042", "%",    "\\q"};
    std::mt19937 random(1);
    std::uniform_int_distribution<size_t> part(0, std::size(kParts) - 1);
    QTemporaryDir const folder;
    for (int i = 0; i < kFiles; ++i) {
        QByteArray text("a=");
        for (int j = 0; j < kPieces; ++j) {
            text += kParts[part(random)];
        }
        ASSERT_EQ(ReadHere(text), ReadByQSettings(folder.filePath(QString::number(i)), text))
            << text.toStdString();
    }
}

TEST(KeyTable, HoldsTheKeysThatTheProgramReads)
{
    QFile source(QStringLiteral(FW_SOURCE_DIR "/config/startup_config.cpp"));
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

TEST(KeyInASection, WithoutANameIsNotSeenEither)
{
    BundleFolder bundle;
    bundle.Remove("fw_version");
    bundle.Set("[]\nfw_version", "1.0");
    EXPECT_TRUE(Finds(bundle,
                      "config.ini:15: warning: fw_version: The key stands in the section \"[]\", "
                      "where the program does not see it"));
}

TEST(KeyInPercentCodes, IsTheKeyThatTheyName)
{
    BundleFolder bundle;
    bundle.Remove("fw_version");
    bundle.Set("fw%5Fversion", "1.0");
    EXPECT_TRUE(FindsNothing(bundle));
    bundle.Set("fw_version", "1.1");
    EXPECT_TRUE(FindsOnly(bundle, "config.ini:15: warning: fw_version: The key stood in line 14"));
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
    bundle.Set("product_text", "C:\\xyz");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:12: warning: product_text: \"\\x\" is no escape "
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

TEST(UnquotedSemicolon, BehindANameOrAClosingQuotationMarkIsAComment)
{
    BundleFolder bundle;
    bundle.Set("product_text", "\"Plug in; reset\" ; remark");
    bundle.Set("fw_target_type", "Customer ; remark");
    bundle.Set("interface", "uart ; remark");
    EXPECT_TRUE(FindsNothing(bundle));
    bundle.Set("product_text", "Lumen \\\"Pro\\\"; two");
    EXPECT_TRUE(Finds(bundle, "config.ini:12: warning: product_text: An unquoted semicolon"));
    bundle.Set("product_text", "\\\"Pro\\\"; two");
    EXPECT_TRUE(Finds(bundle, "config.ini:12: warning: product_text: An unquoted semicolon"));
    bundle.Set("product_text", "\"Lumen\" \"Pro\"; two");
    EXPECT_TRUE(Finds(bundle, "config.ini:12: warning: product_text: An unquoted semicolon"));
}

TEST(QuotationMarks, InsideATextAreDropped)
{
    BundleFolder bundle;
    for (auto const* value : {"Lumen \"Pro\" two", "\"Lumen \"\"Pro\" two"}) {
        bundle.Set("product_text", value);
        EXPECT_TRUE(FindsOnly(bundle,
                              "config.ini:12: warning: product_text: Quotation marks inside a text "
                              "are dropped, and the spaces behind them: the program reads \"Lumen "
                              "Protwo\"."))
            << value;
    }
    bundle.Set("product_text", "\"Lumen \\\"Pro\\\" two\"");
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(ValueInQSettingsOwnForm, IsNotGivenToTheReader)
{
    for (auto const* value :
         {"@Variant(\\0\\0)", "@Variant(\\0\\0)  ", "\"@Size(1 2)\"", "@Size(1 2)\"\"",
          "a, @Rect(1)", "\"a,\", \"@Rect(1)\"", "\\x40Point(1)", "\\0100Point(1)",
          "\\\n@Invalid()", "\"\"@String(x)", "@DateTime(\\0)", "@ByteArray(x)"}) {
        BundleFolder bundle;
        bundle.Set("product_text", value);
        EXPECT_TRUE(Finds(bundle,
                          "config.ini:12: error: product_text: The value, or an element of its "
                          "list, has the form @NAME(...)"))
            << value;
    }
}

TEST(ValueInQSettingsOwnForm, IsRecognisedBehindEveryEscapeThatHidesIt)
{
    for (auto const* value :
         {"\\q@Variant(\\0)", "\\x@Variant(\\0)", "\\x10040Variant(\\0)", "\\200100Variant(\\0)",
          "\\x00000000000000000000000000000040Variant(\\0)", "@\\x56\\141riant(\\0\\x29",
          "@Variant(\\0)\\x", "@Varia\\\nnt(\\0)"}) {
        BundleFolder bundle;
        bundle.Set("product_text", value);
        EXPECT_TRUE(Finds(bundle, "config.ini:12: error: product_text: The value, or an element "))
            << value;
    }
}

TEST(ValueThatBeginsWithAtSign, IsOrdinaryInEveryOtherForm)
{
    for (auto const* value : {"@Lumen", "@@home", "@@Variant(x)", "\"Mail us, @kelvane\"",
                              "\"Mail us, @Variant(x)\"", "@Variant(x", "@Variant(x) two",
                              "@Lumen(x)", "@variant(x)", "a@b \\x41", "x @Variant(x)"}) {
        BundleFolder bundle;
        bundle.Set("product_text", value);
        EXPECT_TRUE(FindsNothing(bundle)) << value;
    }
    BundleFolder bundle;
    bundle.Set("product_list", "Aria:10c4:ea60, @Lumen:10c4:ea61");
    EXPECT_TRUE(FindsNothing(bundle));
}
