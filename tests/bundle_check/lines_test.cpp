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

TEST(Lines, AreCheckedWhereverTheyLie)
{
    constexpr char const* kRemoved = nullptr;
    ExpectFindings({
        {{{"colour red\n; ", ""}},
         "config.ini:14: warning: 'colour red' has no '=' and is ignored"},
        // The program reads no key in a section but General.
        {{{"fw_version", kRemoved}, {"[Window]\nfw_version", "1.0"}},
         "config.ini:15: warning: fw_version: The key is in the section '[Window]', where the "
         "program does not read it",
         false},
        {{{"fw_version", kRemoved}, {"[]\nfw_version", "1.0"}},
         "config.ini:15: warning: fw_version: The key is in the section '[]', where",
         false},
        {{{"fw_version", kRemoved}, {"[]\nfw_version", "1.0"}},
         "config.ini: warning: fw_version: The key is missing, so the window shows no version "
         "number; add it.",
         false},
        {{{"fw_version", kRemoved}, {"[General]\nfw_version", "1.0"}}, ""},
        // A key in percent codes is the one that they spell.
        {{{"fw_version", kRemoved}, {"fw%5Fversion", "1.0"}}, ""},
        {{{"fw_version", kRemoved}, {"fw%5Fversion", "1.0"}, {"fw_version", "1.1"}},
         "config.ini:15: warning: fw_version: The key is already set on line 14;"},
        // A duplicate is reported once, at the line that is used.
        {{{"; \nfw_version", "2.0"}},
         "config.ini:15: warning: fw_version: The key is already set on line 13; this value is "
         "used. Keep only one of the lines."},
        {{{"; \nfw_version", "2.0"}, {"; \nfw_version ", "3.0"}},
         "config.ini:17: warning: fw_version: The key is already set on line 13;"},
        {{{"; \notp_size", "x"}},
         "config.ini:15: error: otp_size: The program reads 'x' as 0",
         false},
        {{{"product_text", "\"Lumen"}},
         "config.ini:12: error: product_text: The closing quotation mark is missing: the rest of "
         "the file, up to line 13, becomes part of this value; add it at the end of the text.",
         false},
        {{{"window_title", "\"Lumen\nTwo\""}},
         "config.ini:10: warning: window_title: The value continues to line 11;"},
        {{{"product_text", "\"Lumen\" \"Pro\"; two"}},
         "config.ini:12: warning: product_text: An unquoted semicolon",
         false},
        // Such a file is kept from QSettings, so nothing is said about its values.
        {{{"product_text", "@Size(1 2)"}, {"otp_size", "x"}},
         "config.ini:12: error: product_text: The value contains '@NAME(', Qt's notation for "
         "values that are not text"},
    });
}

TEST(Backslash, BeginsAnEscapeSequence)
{
    ExpectFindings(R"(
product_text=Lumen \Q two => warning: '\Q' is not an escape sequence, and both characters are dropped; write '\\'
product_text=C:\xyz => warning: '\x' is not an escape sequence
window_title="a\n\t\\Q\x41" => clean
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
}
