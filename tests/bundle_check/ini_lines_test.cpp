// How config.ini is divided into lines, and which values must not reach QSettings: by examples, and
// by comparison with QSettings itself.
#include "bundle_check/ini_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QSettings>
#include <QTemporaryDir>
#include <algorithm>
#include <iterator>
#include <memory>
#include <random>
#include <set>

#include "tests/support/files.h"

using namespace Qt::StringLiterals;
using bundle_check::DecodeIniKey;
using bundle_check::MayBeForeignForm;
using bundle_check::ScanIni;
using testing::ElementsAre;
using testing::IsEmpty;

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

bool HasMixedQuotes(QByteArray const& value)
{
    return ScanIni("a=" + value).entries.first().mixed_quotes;
}

std::set<QString> AllNames(QByteArray const& text)
{
    std::set<QString> names;
    for (auto const& entry : ScanIni(text).entries) {
        names.insert(entry.FullName());
    }
    return names;
}

// What QSettings makes of a file with this text.
std::unique_ptr<QSettings> Read(QTemporaryDir const& folder, QString const& name,
                                QByteArray const& text)
{
    WriteFile(folder.filePath(name), text);
    return std::make_unique<QSettings>(folder.filePath(name), QSettings::IniFormat);
}

// Other names cannot be compared: QSettings changes them first.
bool IsRegular(QString const& name)
{
    return !name.isEmpty() && !name.startsWith(u'/') && !name.endsWith(u'/') &&
           !name.contains(u"//"_s);
}

bool IsText(QVariant const& value)
{
    auto const is_string = [](QVariant const& element) {
        return element.typeId() == QMetaType::QString;
    };
    return value.typeId() == QMetaType::QVariantList
               ? std::ranges::all_of(value.toList(), is_string)
               : is_string(value) || value.typeId() == QMetaType::QStringList;
}

}  // namespace

TEST(IniLines, AreDividedAtEveryKindOfLineEndAndBySectionsAndComments)
{
    EXPECT_THAT(Scan(""), IsEmpty());
    EXPECT_THAT(Scan("\xEF\xBB\xBF"
                     "a=1"),
                ElementsAre("1:/a=1"));
    EXPECT_THAT(Scan("a=1\nb = 2 \r\n\r\n\n  c=3\rd=4"),
                ElementsAre("1:/a=1", "2:/b=2", "5:/c=3", "6:/d=4"));
    EXPECT_THAT(Scan("; a=1\n;\n  ; b=2\nc=3 ; d=4\n"), ElementsAre("4:/c=3"));
    EXPECT_THAT(Scan("a=1\n[Window]\nb=2\n[ GENERAL ]\nc=3\n[open\nd=4"),
                ElementsAre("1:/a=1", "3:Window/b=2", "5:/c=3", "7:open/d=4"));
}

TEST(IniLines, ContinueInsideQuotationMarksAndAfterABackslash)
{
    EXPECT_THAT(Scan("a=\"x\ny;=\"\nb=1\\\r\n2\nc=\"\\\"\n\"\nd=4"),
                ElementsAre("1:/a=\"x\ny;=\"", "3:/b=1\\\r\n2", "5:/c=\"\\\"\n\"", "7:/d=4"));
}

TEST(IniLines, MayBeCutOffAnywhere)
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
    EXPECT_EQ(AllNames("[]\na=1\n[%General]\na=2\n[General]\na=3\nA%42\\c=4"),
              (std::set<QString>{u"/a"_s, u"General/a"_s, u"a"_s, u"AB/c"_s}));
}

TEST(IniKey, HasItsPercentCodesDecoded)
{
    EXPECT_EQ(DecodeIniKey("fw%5Fversion"), u"fw_version"_s);
    EXPECT_EQ(DecodeIniKey("%U20ACa%5f"), u"\u20ACa_"_s);
    EXPECT_EQ(DecodeIniKey("a%5"), u"a%5"_s);
    EXPECT_EQ(DecodeIniKey("%U005%zz%%41"), u"%U005%zz%A"_s);
    EXPECT_EQ(DecodeIniKey("a\\b%"), u"a/b%"_s);
}

TEST(IniValue, HasMixedQuotesWhenTheyEncloseOnlyAPartOfAnElement)
{
    for (auto const* value : {"a \"b\" c", "\"a\" b", "a\"b\"", "\"a\"\"b\"", "x, \"a\" b",
                              "\"a\"\\n", "\"a \"b\" c\""}) {
        EXPECT_TRUE(HasMixedQuotes(value)) << value;
    }
    for (auto const* value : {"", "a b", " \"a, b\" ", "\"a\", b, \"c\"", "\"a \\\"b\\\" c\"",
                              "a \\\"b\\\" c", "\"\""}) {
        EXPECT_FALSE(HasMixedQuotes(value)) << value;
    }
}

TEST(ForeignForm, IsRecognisedWhereverAnElementMayBeginWithItAndBehindEveryEscape)
{
    for (auto const* value :
         {"@Variant(\\0\\0)", "@Variant(\\0\\0)  ", "\"@Size(1 2)\"", "@Size(1 2)\"\"",
          "a, @Rect(1)", "\"a,\", \"@Rect(1)\"", "\\\n@Invalid()", "\"\"@String(x)",
          "@DateTime(\\0)", "@ByteArray(x)",
          // escapes
          "\\x40Point(1)", "\\0100Point(1)", "\\q@Variant(\\0)", "\\x@Variant(\\0)",
          "\\x10040Variant(\\0)", "\\200100Variant(\\0)",
          "\\x00000000000000000000000000000040Variant(\\0)", "@\\x56\\141riant(\\0\\x29",
          "@Variant(\\0)\\x", "@Varia\\\nnt(\\0)", "\\@@Variant(\\0)", "@\\@Variant(\\0)",
          "@Var\"\"iant(\\0)", "@Var\" \\x69ant(\\0)"}) {
        EXPECT_TRUE(MayBeForeignForm(value)) << value;
    }
}

TEST(ForeignForm, IsNotWhatOrdinaryTextsWithAnAtSignHave)
{
    for (auto const* value :
         {"@Lumen", "@@home", "@@Variant(x)", "\"Mail us, @kelvane\"", "@Lumen(x)", "@variant(x)",
          "a@b \\x41", "x @Variant(x)", "info@Size(1)", "info@m\\xfcller (office)", "\\x40home",
          "@@\\x41(1)", "info@kelvane.example\\nwww", "@Lumen\\nPlug in", "C:\\\\100", "\\x401"}) {
        EXPECT_FALSE(MayBeForeignForm(value)) << value;
    }
}

// Nothing but text may come out of QSettings once a file has been let through. Every combination of
// the ways to write the parts of such a value.
TEST(ForeignForm, IsRecognisedInEveryValueThatQSettingsTakesForSomethingElse)
{
    QByteArray text;
    for (auto const* before :
         {"", "\"\" ", "a, ", "\"a,\", ", "\\q", "\\x", "\\\n", "\\@", "@, "}) {
        for (auto const* at : {"@", "\\x40", "\\100", "\\x10040", "\\200100", "@@", "x"}) {
            for (auto const* name : {"Size", "S\"\"ize", "S\"\" ize", "\\x53ize", "\\123ize",
                                     "Si\\\nze", "Si\\qze", "size"}) {
                for (auto const* end :
                     {"(1 2)", "\\x28\\x31 2)", "(1 2)\"\"", "(1 2)  ", "(1 2\\x29", "(1 2)\\x",
                      "\\50\\61 2)", "\\q(1 2)", "(1 2), b", "(1 2"}) {
                    auto const value = QByteArray(before) + at + name + end;
                    text += "a" + QByteArray::number(text.size()) + '=' + value + '\n';
                }
            }
        }
    }
    QTemporaryDir const folder;
    auto const settings = Read(folder, u"config.ini"_s, text);

    int foreign = 0;
    auto const entries = ScanIni(text).entries;
    ASSERT_EQ(entries.size(), settings->allKeys().size());
    for (auto const& entry : entries) {
        bool const is_text = IsText(settings->value(entry.key));
        foreign += is_text ? 0 : 1;
        EXPECT_TRUE(is_text || MayBeForeignForm(entry.value)) << entry.value.toStdString();
    }
    EXPECT_GT(foreign, entries.size() / 10) << "the parts hardly ever make such a value";
}

// Names that QSettings divides from the file in another way would be reported wrongly. The files
// consist of random pieces, always the same.
TEST(IniReading, AgreesWithQSettings)
{
    constexpr int kFiles = 1000;
    constexpr int kPieces = 12;
    static constexpr char const* kParts[] = {
        "a",   "b",          "=",   "=",           "\n",   "\n",     "\r\n", ",",
        ";",   "\"",         "\"",  " ",           "\t",   "\\",     "\\x",  "\\x40",
        "\\0", "\\1000",     "\\n", "\\\\",        "\\\"", "40",     "@",    "x)",
        "[b]", "[%General]", "[]",  "[General]\n", "%41",  "%U0042", "%",    "\\q"};
    QTemporaryDir const folder;
    std::mt19937 random(1);
    std::uniform_int_distribution<size_t> part(0, std::size(kParts) - 1);
    for (int i = 0; i < kFiles; ++i) {
        QByteArray text("a=");
        for (int j = 0; j < kPieces; ++j) {
            text += kParts[part(random)];
        }
        auto here = AllNames(text);
        auto const keys = Read(folder, QString::number(i), text)->allKeys();
        std::set<QString> there(keys.begin(), keys.end());
        for (auto* names : {&here, &there}) {
            std::erase_if(*names, [](QString const& name) { return !IsRegular(name); });
        }
        ASSERT_EQ(here, there) << text.toStdString();
    }
}
