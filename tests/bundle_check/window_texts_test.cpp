// What is reported about the texts in the window: what is cut off, what cannot be drawn, and what
// does not agree with the program's own texts.
#include <gtest/gtest.h>

#include <QRegularExpression>

#include "tests/bundle_check/bundle_folder.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace {

// The only finding, if its line matches: the pixels depend on the version of the fonts' source. "#"
// is a number, and "..." any text. Notes count only if one is expected.
testing::AssertionResult FindsMatch(BundleFolder const& bundle, QString const& line)
{
    auto pattern = QRegularExpression::escape(line);
    pattern.replace(u"\\#"_s, u"\\d+"_s).replace(u"\\.\\.\\."_s, u".*"_s);
    auto findings = GetFindings(bundle.Root());
    findings.removeIf([&](QString const& finding) {
        return finding.contains(u"note: "_s) && !line.contains(u"note: "_s);
    });
    QRegularExpression const expected(QRegularExpression::anchoredPattern(pattern));
    return findings.size() == 1 && expected.match(findings[0]).hasMatch()
               ? testing::AssertionSuccess()
               : testing::AssertionFailure() << findings.join(u'\n').toStdString();
}

void UseMacosFont(BundleFolder& bundle, QString const& style)
{
    bundle.Write(u"Resources/Sans-%1.otf"_s.arg(style),
                 ReadFile(QStringLiteral(FW_FONTS_72 "/KelvaneSans-%1.otf").arg(style)));
}

void UseMacosFonts(BundleFolder& bundle)
{
    UseMacosFont(bundle, u"Regular"_s);
    UseMacosFont(bundle, u"Bold"_s);
}

constexpr char kElfHead[] =
    "\x7F"
    "ELF";
constexpr char kMachOHead[] = "\xCF\xFA\xED\xFE";

QByteArray Lines(int count)
{
    QByteArray text = "1. a\\n2. b\\n3. c";
    for (int line = 3; line < count; ++line) {
        text += "\\nx";
    }
    return '"' + text + '"';
}

}  // namespace

TEST(ShownTexts, ThatAreCutOffAreErrorsWithWhatRemains)
{
    struct {
        char const* key;
        QByteArray value;
        QString finding;
    } const rows[] = {
        {"fw_version", "2026.11.21",
         u"'2026.11.21' would be shown as '...11.21'; 58 pixels are free, # needed at 96 dpi (# at "
         "72 dpi, on a Mac); shorten it, or use narrower fonts."_s},
        {"fw_version", "122.10.1",
         u"'122.10.1' would be shown as '...10.1'; 58 pixels are free, # needed at 96 dpi (it fits "
         "at 72 dpi, on a Mac); shorten it, or use narrower fonts."_s},
        {"fw_version", "\"1.0\\n2.0\"",
         u"'1.0\\n2.0' has 2 lines, but there is room for only one; 16 pixels of height are free, "
         "# needed at 96 dpi (# at 72 dpi, on a Mac); write it on one line."_s},
        {"fw_version", "\xC3\x9C",
         u"'\u00DC' would lose its upper edge; 16 pixels of height are free, # needed at 96 dpi "
         "(it fits at 72 dpi, on a Mac); use characters of the usual height, or fonts with smaller "
         "letters."_s},
        {"product_text", "Wonderfully long product name",
         u"'Wonderfully long product name' would be shown as 'Wonderfully...'; 201 pixels are "
         "free, # needed at 96 dpi ..."_s},
        {"product_text", "\"Lumen\\n\"",
         u"'Lumen\\n' has 2 lines, but there is room for only one; 21 pixels ..."_s},
        {"fw_target_type", "internal evaluation only",
         u"'Internal evaluation only' would be shown as 'Internal eval...'; 181 pixels are free, ..."_s},
        {"instructions_text", "\"1. Plug in.\\n2. Hold both of the buttons at once\\n3. Reset.\"",
         u"'2. Hold both of the buttons at once' would be shown as '2. Hold both of the "
         "button...'; 201 pixels are free, ..."_s},
        {"instructions_text", Lines(15),
         u"'1. a\\n2. b\\n3. c\\nx...' would lose its last line, 'x'; 231 pixels of height are "
         "free, # needed at 96 dpi (it fits at 72 dpi, on a Mac); shorten it, or use fonts with a "
         "smaller line height."_s},
        {"instructions_text", Lines(17),
         u"'1. a\\n2. b\\n3. c\\nx...' would lose its last 3 lines, from 'x' on; 231 ..."_s},
    };
    for (auto const& [key, value, finding] : rows) {
        BundleFolder bundle;
        bundle.Set(key, value);
        auto const name = QString::fromLatin1(key);
        auto const place = u"config.ini:%1: error: %2: "_s.arg(bundle.LineOf(key)).arg(name);
        EXPECT_TRUE(FindsMatch(bundle, place + finding)) << key << '=' << value.constData();
    }
}

TEST(ShownTexts, ThatFitAreNotReported)
{
    ExpectFindings(R"(
fw_version=12.3.4 => clean
product_text=Kelvane Lumen II => clean
product_text=Größe Łódź Ñ => clean
instructions_text="1. Gerät anschließen.\n2. Grüne Taste drücken.\n3. Zurücksetzen, é à ç." => clean
)");
    BundleFolder bundle;
    bundle.Set("instructions_text", Lines(14));
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(ShownTexts, MustFitOnTheSystemThatTheBundleIsFor)
{
    struct {
        char const* system;  // a file that shows it
        QByteArray head;
        bool has_macos_fonts;
        char const* version;
        QString finding;  // empty: none
    } const rows[] = {
        {"Info.plist", "<plist/>", true, "12.3.4",
         u"note: At 96 dpi, as on systems other than macOS, these texts would be cut off: "
         "'Firmware upgrade', 'Version', '12.3.4', 'Error connecting to device \u2014 Disconnect "
         "device and repeat st...'."_s},
        {"MacOS/program", kMachOHead, true, "12.3.4", u"note: At 96 dpi, ..."_s},
        {"Info.plist", "<plist/>", true, "2026.11.21",
         u"config.ini:13: error: fw_version: ... needed at 72 dpi, on a Mac (# at 96 dpi); ..."_s},
        {"Info.plist", "<plist/>", true, "\xC3\x9C\xC3\x9C\xC3\x9C\xC3\x9C",
         u"config.ini:13: error: ... pixels of height are free, # needed at 72 dpi, on a Mac (nor "
         "does it fit at 96 dpi); ..."_s},  // in width
        {"Info.plist", "<plist/>", false, "1.0",
         u"warning: The letters are small: at 72 dpi, on a Mac, the capital letters of 'Update "
         "requires cable with USB-C connector.' are #.# pixels high, less than 6.5; use fonts "
         "with larger letters, which resources/fonts/derive_font.py in the vendor tools makes for "
         "72 dpi."_s},
        {"MacOS/program", kElfHead, false, "1.0", {}},
        {"MacOS/program", kElfHead, false, "122.10.1",
         u"config.ini:13: error: ... at 96 dpi ..."_s},
        {nullptr,
         {},
         true,
         "1.0",
         u"warning: At 96 dpi, as on systems other than macOS, these texts would be cut off: ... "
         "At 72 dpi, on a Mac, they fit. If the bundle is for another system, use fonts with "
         "smaller letters."_s},
    };
    for (auto const& [system, head, has_macos_fonts, version, finding] : rows) {
        BundleFolder bundle;
        if (system != nullptr) {
            bundle.Write(QString::fromLatin1(system), head, true);
        }
        if (has_macos_fonts) {
            UseMacosFonts(bundle);
        }
        bundle.Set("fw_version", version);
        EXPECT_TRUE(finding.isEmpty() ? FindsNothing(bundle) : FindsMatch(bundle, finding))
            << finding.toStdString();
    }
}

TEST(ShownTexts, OfTheProgramItselfMustFitInTheFonts)
{
    // Fonts for a Mac have letters that are a third larger elsewhere.
    BundleFolder bundle;
    bundle.Write(u"MacOS/program"_s, kElfHead, true);
    UseMacosFonts(bundle);
    for (auto const* finding :
         {"error: The program's own text 'Firmware upgrade' would be shown as 'Firmware",
          "error: The program's own text 'Version' would lose its upper and lower edges; 16 pixels "
          "of height are free, ",
          "error: The program's own text 'Error connecting to device \xE2\x80\x94 Disconnect "
          "device and repeat st...' would be shown as "}) {
        EXPECT_TRUE(Finds(bundle, finding));
    }
}

TEST(ShownTexts, MustNotLookLikeHtml)
{
    ExpectFindings(R"(
product_text=<b>Lumen</b> => error: Qt takes '<b>Lumen</b>' for HTML, and the window shows 'Lumen'; write it without '<' and '>'.
product_text=<br> => error: Qt takes '<br>' for HTML, and the window shows nothing; write it without
fw_version=<i>1</i> => error: Qt takes '<i>1</i>' for HTML, and the window shows '1';
instructions_text="1. <br>\n2. b\n3. c" => error: Qt takes '1. <br>\n2. b\n3. c' for HTML
product_text=5 < 6 => clean
product_text=<Lumen => clean
product_text=a & b => clean
)");
    ExpectFindings({{{{"fw_target_type", "<u>x"}},
                     "config.ini:7: error: fw_target_type: Qt takes '<u>x' for HTML",
                     false}});
}

TEST(ShownTexts, NeedTheirCharactersInTheFontsOfTheirStyle)
{
    ExpectFindings({
        {{{"product_text", "Lumen \xE2\x98\x82"}},
         "config.ini:12: warning: product_text: '\xE2\x98\x82' (U+2602) is not in the style Bold "
         "of the fonts, so the window takes it from another font, or shows boxes; use fonts that "
         "have it, or write the text without."},
        {{{"product_text", "Lumen \xF0\x9F\x8E\x89"}},
         "config.ini:12: warning: product_text: '\xF0\x9F\x8E\x89' (U+1F389) is not in the style",
         false},
        {{{"product_text", "Lumen \xEF\x80\x80"}},
         "config.ini:12: warning: product_text: U+F000 is not in the style Bold",
         false},
        {{{"instructions_text", "\"1. \xE0\xB8\x81\\n2. \xE0\xB8\x82 \xE0\xB8\x81\\n3. c\""}},
         "config.ini:11: warning: instructions_text: '\xE0\xB8\x81' (U+0E01), '\xE0\xB8\x82' "
         "(U+0E02) are not in the style Regular of the fonts, so the window takes them from",
         false},
        {{{"instructions_text",
           "\"1. \xE4\xB8\x80\xE4\xB8\x81\xE4\xB8\x82\xE4\xB8\x83\xE4\xB8\x84"
           "\xE4\xB8\x85\\n2. b\\n3. c\""}},
         "config.ini:11: warning: instructions_text: '\xE4\xB8\x80' (U+4E00), '\xE4\xB8\x81' "
         "(U+4E01), '\xE4\xB8\x82' (U+4E02), '\xE4\xB8\x83' (U+4E03), '\xE4\xB8\x84' (U+4E04) and "
         "1 more are not in",
         false},
        {{{"product_text", "C:\\bin"}},
         "config.ini:12: warning: product_text: The text contains the control character U+0008, "
         "which appears as a box; remove it, or write '\\\\' if a backslash is meant."},
        // Nobody misses what cannot be seen: tabs, carriage returns, joiners, selectors.
        {{{"product_text",
           "Lum\xE2\x80\x8D"
           "en\xEF\xB8\x8F\\tII\\r"}},
         ""},
    });
}

TEST(ShownTexts, ThatAreFarTooLongAreNotLaidOut)
{
    ExpectFindings(
        "product_text=" + QByteArray(1001, 'x') +
        " => error: The text has 1001 characters, far more than the window has room for; shorten");
}

TEST(FixedTexts, ReferToTheStepsOfTheInstructions)
{
    ExpectFindings(R"(
instructions_text="1. a\n2. b\n3. c" => clean
instructions_text="Instructions\n\n 1  a\n2) b\n- 3: c" => clean
instructions_text="Step 1: a\nStep 2: b\nStep3: c" => clean
instructions_text="① a\n② b\n③ c" => clean
instructions_text="1. a\n2. b" => warning: After a failure the window asks to repeat the steps 1 to 3, but no line of the instructions begins with 3; number the steps that put the unit into boot mode.
instructions_text="Plug in.\nReset." => warning: After a failure the window asks to repeat the steps 1 to 3, but no line of the instructions begins with 1, 2 or 3;
instructions_text="11. a\n2. b\n3. c" => warning: After a failure the window asks to repeat the steps 1 to 3, but no line of the instructions begins with 1;
instructions_text="  " => warning: The value is empty, so the window shows no instructions; write one.
)");
}

TEST(FixedTexts, AskForTheConnectorOfTheInstructions)
{
    struct {
        char const* words;
        char const* connector;  // the other one that is reported, or null
    } const rows[] = {
        {"a micro-USB cable", "micro-USB"},   {"a Micro USB cable", "Micro USB"},
        {"the Micro-B plug", "Micro-B"},      {"a mini USB cable", "mini USB"},
        {"a USB-B cable", "USB-B"},           {"a usb-b cable", "usb-b"},
        {"a USB A cable", "USB A"},           {"a USB Type A cable", "USB Type A"},
        {"the Lightning cable", "Lightning"}, {"a USB-C cable", nullptr},
        {"a USB-A to USB-C cable", nullptr},  {"the USB cable", nullptr},
        {"the USB a second time", nullptr},   {"the Lumen mini cable", nullptr},
        {"the micro switch", nullptr},
    };
    for (auto const& [words, connector] : rows) {
        BundleFolder bundle;
        bundle.Set("instructions_text", QByteArray("\"1. Use ") + words + "\\n2. b\\n3. c\"");
        auto const finding =
            QByteArray(
                "config.ini:11: warning: instructions_text: The window always asks for a "
                "cable with a USB-C connector, but the instructions name '") +
            connector + "';";
        EXPECT_TRUE(connector == nullptr ? FindsNothing(bundle)
                                         : FindsOnly(bundle, finding.constData()))
            << words;
    }
}
