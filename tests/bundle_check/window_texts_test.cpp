// What is reported about the texts in the window: what is cut off, what cannot be drawn, and what
// does not agree with the program's own texts.
#include <gtest/gtest.h>

#include <QRegularExpression>

#include "tests/bundle_check/bundle_folder.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace {

// The only finding, if its line matches: the pixels depend on the version of the fonts' source. The
// note that a target type is seen at all does not count.
testing::AssertionResult FindsMatch(BundleFolder const& bundle, QString const& pattern)
{
    auto findings = GetFindings(bundle.Root());
    findings.removeIf([](QString const& line) { return line.contains(u"' appears in yellow "_s); });
    QRegularExpression const expected(QRegularExpression::anchoredPattern(pattern));
    return findings.size() == 1 && expected.match(findings[0]).hasMatch()
               ? testing::AssertionSuccess()
               : testing::AssertionFailure() << findings.join(u'\n').toStdString();
}

QByteArray ReadMacosFont(QString const& style)
{
    return ReadFile(QStringLiteral(FW_FONTS_72 "/KelvaneSans-%1.otf").arg(style));
}

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
         u"error: fw_version: '2026\\.11\\.21' would be shown as '[.0-9]*\\.21'; 58 pixels are "
         u"free, "
         "\\d\\d needed at 96 dpi \\(\\d\\d at 72 dpi; a Mac has 72 dpi\\); shorten it, or use "
         "narrower "
         "fonts\\."_s},
        {"fw_version", "22.10.1",
         u"error: fw_version: '22\\.10\\.1' would be shown as '2?\\.?10\\.1'; 58 pixels are free, "
         u"\\d\\d "
         "needed at 96 dpi \\(it fits at 72 dpi; a Mac has 72 dpi\\); shorten it.*"_s},
        {"product_text", "Wonderfully long product name",
         u"error: product_text: 'Wonderfully long product name' would be shown as 'Wonderfully "
         u"[a-z "
         "]*'; 201 pixels are free, \\d+ needed at 96 dpi .*"_s},
        {"fw_target_type", "internal evaluation only",
         u"error: fw_target_type: 'Internal evaluation only' would be shown as 'Internal eval[a-z "
         u"]*"
         "'; 181 pixels are free, .*"_s},
        {"instructions_text", "\"1. Plug in.\\n2. Hold both of the buttons at once\\n3. Reset.\"",
         u"error: instructions_text: '2. Hold both of the buttons at once' would be shown as '2. "
         u"Hold "
         "both of the button[a-z ]*'; 201 pixels are free, .*"_s},
        {"instructions_text", Lines(17),
         u"error: instructions_text: '1\\. a\\?2\\. b.*' would be shown without its last [0-9 "
         u"]*lines?; "
         "231 pixels of height are free, \\d+ needed at 96 dpi \\(it fits at 72 dpi.*; shorten it, "
         "or "
         "use fonts with a smaller line height\\."_s},
    };
    for (auto const& [key, value, finding] : rows) {
        BundleFolder bundle;
        bundle.Set(key, value);
        auto const place = u"config\\.ini:%1: "_s.arg(bundle.LineOf(key));
        EXPECT_TRUE(FindsMatch(bundle, place + finding)) << key << '=' << value.constData();
    }
}

TEST(ShownTexts, ThatFitAreNotReported)
{
    ExpectFindings(R"(
fw_version=12.3.4 => clean
product_text=Kelvane Lumen II => clean
fw_target_type=evaluation => note: 'evaluation' appears in yellow
)");
    BundleFolder bundle;
    bundle.Set("instructions_text", Lines(12));
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(ShownTexts, OfAnApplicationForMacosMustFitThere)
{
    BundleFolder bundle;
    bundle.Write(u"Info.plist"_s, "<plist/>");
    bundle.Set("fw_version", "22.10.1");
    EXPECT_TRUE(FindsMatch(bundle, u"config.ini:13: note: fw_version: .* needed at 96 dpi .*"_s));
    bundle.Set("fw_version", "2026.11.21");
    EXPECT_TRUE(
        FindsMatch(bundle,
                   u"config.ini:13: error: fw_version: .* needed at 72 dpi \\(\\d\\d at 96 dpi; "
                   "a Mac has 72 dpi\\);.*"_s));
    bundle.Delete(u"Info.plist"_s);
    bundle.Write(u"MacOS/program"_s, "\xCF\xFA\xED\xFE", true);
    bundle.Set("fw_version", "22.10.1");
    EXPECT_TRUE(FindsMatch(bundle, u"config.ini:13: note: fw_version: .* needed at 96 dpi .*"_s))
        << "a program for macOS";
}

TEST(ShownTexts, OfTheProgramItselfMustFitInTheFonts)
{
    // Fonts for a Mac have letters that are a third larger elsewhere.
    BundleFolder bundle;
    bundle.Write(u"Resources/Sans-Bold.otf"_s, ReadMacosFont(u"Bold"_s));
    EXPECT_TRUE(Finds(
        bundle, "error: The program's own text 'Firmware upgrade' would be shown as 'Firmware"))
        << "a label";
    EXPECT_TRUE(Finds(bundle,
                      "error: The program's own text 'Version' would lose its upper or lower edge; "
                      "16 pixels of height are free, "));
    bundle.Write(u"Resources/Sans-Bold.otf"_s, ReadDemonstrationFont(u"Bold"_s));
    bundle.Write(u"Resources/Sans-Regular.otf"_s, ReadMacosFont(u"Regular"_s));
    EXPECT_TRUE(Finds(bundle,
                      "error: The program's own text 'Error connecting to device \xE2\x80\x94 "
                      "Disconnect device and repeat st...' would be shown as "))
        << "the bar";
}

TEST(ShownTexts, MustNotLookLikeHtml)
{
    ExpectFindings(R"(
product_text=<b>Lumen</b> => error: Qt takes '<b>Lumen</b>' for HTML, and the window shows 'Lumen'; write it without '<' and '>'.
fw_version=<i>1</i> => error: Qt takes '<i>1</i>' for HTML, and the window shows '1';
instructions_text="1. <br>\n2. b\n3. c" => error: Qt takes '1. <br>?2. b?3. c' for HTML
product_text=5 < 6 => clean
product_text=a & b => clean
)");
}

TEST(ShownTexts, NeedTheirCharactersInTheFontsOfTheirStyle)
{
    ExpectFindings({
        {{{"product_text", "Lumen \xE2\x98\x82"}},
         "config.ini:12: warning: product_text: '\xE2\x98\x82' (U+2602) is not in the style Bold "
         "of "
         "the fonts, so the window takes it from another font, or shows a box; use fonts that have "
         "it.",
         false},
        {{{"instructions_text", "\"1. \xE0\xB8\x81\\n2. \xE0\xB8\x82 \xE0\xB8\x81\\n3. c\""}},
         "config.ini:11: warning: instructions_text: '\xE0\xB8\x81' (U+0E01), '\xE0\xB8\x82' "
         "(U+0E02) "
         "is not in the style Regular of the fonts",
         false},
        {{{"product_text", "Gr\xC3\xBC\xC3\x9F \xC5\x81"}}, ""},
    });
}

TEST(ShownTexts, ThatAreFarTooLongAreNotLaidOut)
{
    ExpectFindings(
        "product_text=" + QByteArray(1001, 'x') +
        " => error: The text has 1001 characters, far more than the window has room for.");
}

TEST(FixedTexts, ReferToTheStepsOfTheInstructions)
{
    ExpectFindings(R"(
instructions_text="1. a\n2. b\n3. c" => clean
instructions_text="Instructions\n\n 1  a\n2) b\n- 3: c" => clean
instructions_text="Step 1: a\nStep 2: b\nStep 3: c" => clean
instructions_text="Schritt 1 a\nSchritt 2 b\nSchritt 3 c" => clean
instructions_text="1. a\n2. b" => warning: After a failure the window asks to repeat the steps 1 to 3, but no line of the instructions begins with 3; number the steps that put the unit into boot mode.
instructions_text="Plug in.\nReset." => warning: After a failure the window asks to repeat the steps 1 to 3, but no line of the instructions begins with 1 or 2 or 3;
instructions_text="11. a\n2. b\n3. c" => warning: After a failure the window asks to repeat the steps 1 to 3, but no line of the instructions begins with 1;
)");
}

TEST(FixedTexts, AskForTheConnectorOfTheInstructions)
{
    for (auto const* other :
         {"micro-USB", "Micro USB", "mini USB", "USB-B", "USB A", "Lightning"}) {
        BundleFolder bundle;
        bundle.Set("instructions_text",
                   QByteArray("\"1. Use a ") + other + " cable.\\n2. b\\n3. c\"");
        EXPECT_TRUE(
            FindsOnly(bundle, (QByteArray("config.ini:11: warning: instructions_text: The window "
                                          "always asks for a cable with USB-C connector, but the "
                                          "instructions name '") +
                               other + "';")
                                  .constData()))
            << other;
    }
    ExpectFindings(R"(
instructions_text="1. Use a USB-C cable.\n2. b\n3. c" => clean
instructions_text="1. Plug in the USB cable.\n2. b\n3. c" => clean
)");
}
