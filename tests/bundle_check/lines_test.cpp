// What is reported about the lines of config.ini, whatever their values.
#include <gtest/gtest.h>

#include "tests/bundle_check/bundle_folder.h"

TEST(CleanBundle, HasNoFindings)
{
    BundleFolder bundle;
    EXPECT_TRUE(FindsNothing(bundle));
    bundle.UseUsb();
    EXPECT_TRUE(FindsNothing(bundle));

    BundleFolder mcuboot;
    mcuboot.UseMcuboot();
    EXPECT_TRUE(FindsNothing(mcuboot));
}

TEST(UnknownKey, IsReportedWithTheKeyThatWasProbablyMeant)
{
    ExpectFindings(R"(
colour=red => warning: 'colour' is not a known key and is ignored.
Window_Title=x => warning: 'Window_Title' is not a known key and is ignored. Keys are case-sensitive; did you mean window_title?
programing-adress=1 => warning: 'programing-adress' is not a known key and is ignored. Did you mean programming_address?
# colour=red => warning: '# colour' is read as a key; begin a comment with a semicolon, not with '#'.
)");
}

TEST(LineWithoutEqualsSign, IsReported)
{
    BundleFolder bundle;
    bundle.SetConfig("colour red\n");
    EXPECT_TRUE(Finds(bundle, "config.ini:1: warning: 'colour red' has no '=' and is ignored"));
}

TEST(KeyInASection, IsNotReadByTheProgram)
{
    for (auto const* section : {"[Window]", "[]"}) {
        BundleFolder bundle;
        bundle.Remove("fw_version");
        bundle.Set(section + QByteArray("\nfw_version"), "1.0");
        auto const text = "config.ini:15: warning: fw_version: The key is in the section '" +
                          QByteArray(section) + "', where the program does not read it";
        EXPECT_TRUE(Finds(bundle, text));
        EXPECT_TRUE(Finds(bundle,
                          "config.ini: warning: fw_version: The key is missing, so the window "
                          "shows no version number."));
    }
}

TEST(KeyInASection, IsReadInTheGeneralOne)
{
    BundleFolder bundle;
    bundle.Remove("fw_version");
    bundle.Set("[General]\nfw_version", "1.0");
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(KeyInPercentCodes, IsTheKeyThatTheySpell)
{
    BundleFolder bundle;
    bundle.Remove("fw_version");
    bundle.Set("fw%5Fversion", "1.0");
    EXPECT_TRUE(FindsNothing(bundle));
    bundle.Set("fw_version", "1.1");
    EXPECT_TRUE(FindsOnly(
        bundle, "config.ini:15: warning: fw_version: Duplicate key, first set on line 14;"));
}

TEST(DuplicateKey, IsReportedOnceAtTheLineThatIsUsed)
{
    BundleFolder bundle;
    bundle.Set("; \nfw_version", "2.0");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:15: warning: fw_version: Duplicate key, first set on line "
                          "13; this value is used."));
    bundle.Set("; \nfw_version ", "3.0");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:17: warning: fw_version: Duplicate key, first set on line "
                          "13; this value is used."));
}

TEST(DuplicateKey, HasItsLastValueChecked)
{
    BundleFolder bundle;
    bundle.Set("; \notp_size", "x");
    EXPECT_TRUE(Finds(bundle, "config.ini:15: error: otp_size: The program reads 'x' as 0"));
}

TEST(Quotes, ThatAreNotClosedSwallowTheRestOfTheFile)
{
    BundleFolder bundle;
    bundle.Set("product_text", "\"Lumen");
    EXPECT_TRUE(Finds(bundle,
                      "config.ini:12: error: product_text: The closing quotation mark is missing: "
                      "the rest of the file, up to line 13,"));
}

TEST(ValueOverSeveralLines, IsReported)
{
    BundleFolder bundle;
    bundle.Set("product_text", "\"Lumen\nTwo\"");
    EXPECT_TRUE(
        FindsOnly(bundle, "config.ini:12: warning: product_text: The value continues to line 13;"));
}

TEST(Backslash, BeginsAnEscapeSequence)
{
    ExpectFindings(R"(
product_text=Lumen \Q two => warning: '\Q' is not an escape sequence, and both characters are dropped; write '\\'
product_text=C:\xyz => warning: '\x' is not an escape sequence
product_text="a\n\t\\Q\x41" => clean
)");
}

TEST(UnquotedSemicolon, EndsAValueAndMayBeginAComment)
{
    ExpectFindings(R"(
product_text=Lumen; two => warning: An unquoted semicolon ends the value, so the program reads only 'Lumen';
product_text=Lumen \"Pro\"; two => warning: An unquoted semicolon ends the value
product_text=\"Pro\"; two => warning: An unquoted semicolon ends the value
product_text="Plug in; reset" ; remark => clean
fw_target_type=Customer ; remark => clean
interface=uart ; remark => clean
otp_size=512 ; bytes => clean
)");
}

TEST(Quotes, InsideATextAreDropped)
{
    ExpectFindings(R"(
product_text=Lumen "Pro" two => warning: Quotation marks inside a text, and spaces after them, are dropped: the program reads 'Lumen Protwo'.
product_text="Lumen ""Pro" two => warning: Quotation marks inside a text, and spaces after them, are dropped: the program reads 'Lumen Protwo'.
product_text="Lumen \"Pro\" two" => clean
)");
    BundleFolder bundle;
    bundle.Set("product_text", "\"Lumen\" \"Pro\"; two");
    EXPECT_TRUE(Finds(bundle, "config.ini:12: warning: product_text: An unquoted semicolon"));
}

TEST(ForeignForm, IsReportedAndKeepsTheFileFromQSettings)
{
    BundleFolder bundle;
    bundle.Set("product_text", "@Size(1 2)");
    bundle.Set("otp_size", "x");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:12: error: product_text: The value contains '@NAME(', "
                          "QSettings' notation for values other than text"));
}
