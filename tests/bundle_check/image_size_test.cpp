// The size of the firmware image, compared with the units in which a chip's flash is programmed.
#include <gtest/gtest.h>

#include <QFile>

#include "tests/bundle_check/bundle_folder.h"

using namespace Qt::StringLiterals;

namespace {

constexpr auto kG4 = "0x1FFF7000";
constexpr auto kU5 = "0x0BFA0000";
constexpr auto kUnknownChip = "0x12340000";

// What is found about the size alone; empty: nothing.
QString FindUnitFinding(char const* otp_address, bool is_usb, qint64 size)
{
    BundleFolder bundle;
    if (is_usb) {
        bundle.UseUsb();
    }
    bundle.Set("otp_address", otp_address);
    EXPECT_TRUE(QFile::resize(bundle.Path(u"Resources/firmware.bin"_s), size));
    auto const findings = GetFindings(bundle.Root()).filter(u" bytes at a time"_s);
    return findings.join(u'\n').remove(u"config.ini:1: "_s).remove(u"firmware_filename: "_s);
}

}  // namespace

// Over UART the last 8 bytes are a write of their own.
TEST(ImageSize, OverUartLetsTheTrailerBeginAtAProgrammingUnit)
{
    for (auto const size : {8, 16, 1021, 1022, 1023, 1024}) {
        EXPECT_EQ(FindUnitFinding(kG4, false, size), u""_s) << size;
    }
    for (auto const size : {9, 12, 1017, 1020}) {
        EXPECT_EQ(
            FindUnitFinding(kG4, false, size),
            u"error: The image has %1 bytes, and the flash of the chips 0x469, 0x479 is "
            "programmed 8 bytes at a time. The last 8 bytes, which are written by themselves, "
            "do not begin at a multiple of that, so the unit does not store them, and the "
            "window shows DONE nevertheless. Fill the image up to a size that is a multiple "
            "of 8."_s.arg(size));
    }
    for (auto const size : {8, 24, 1013, 1014, 1015, 1016}) {
        EXPECT_EQ(
            FindUnitFinding(kU5, false, size),
            u"warning: The image has %1 bytes, and the flash of the chip 0x482 is programmed "
            "16 bytes at a time. The last 8 bytes, which are written by themselves, are "
            "fewer. Not every bootloader stores them, and the window shows DONE nevertheless. "
            "Compare the flash of a real unit with the image."_s.arg(size));
    }
    for (auto const size : {12, 16, 1009, 1017, 1020, 1024}) {
        EXPECT_EQ(FindUnitFinding(kU5, false, size),
                  u"error: The image has %1 bytes, and the flash of the chip 0x482 is programmed "
                  "16 bytes at a time. The last 8 bytes, which are written by themselves, do not "
                  "begin at a multiple of that, so the unit does not store them, and the window "
                  "shows DONE nevertheless. Fill the image up to a size that is 8 more than a "
                  "multiple of 16."_s.arg(size));
    }
}

TEST(ImageSize, OverUsbIsAMultipleOfAProgrammingUnit)
{
    for (auto const size : {8, 1016, 1024}) {
        EXPECT_EQ(FindUnitFinding(kG4, true, size), u""_s) << size;
    }
    EXPECT_EQ(FindUnitFinding(kU5, true, 1024), u""_s);
    EXPECT_EQ(FindUnitFinding(kG4, true, 1021),
              u"warning: The image has 1021 bytes, and the flash of the chips 0x469, 0x479 is "
              "programmed 8 bytes at a time. Not every bootloader stores an incomplete end (here "
              "5 of 8 bytes). Fill the image up to a multiple of 8 bytes."_s);
    EXPECT_EQ(FindUnitFinding(kU5, true, 1016),
              u"warning: The image has 1016 bytes, and the flash of the chip 0x482 is programmed "
              "16 bytes at a time. Not every bootloader stores an incomplete end (here 8 of 16 "
              "bytes). Fill the image up to a multiple of 16 bytes."_s);
}

TEST(ImageSize, OfAChipThatIsNotKnownMustSuitOne)
{
    for (auto const size : {8, 16, 1024}) {
        EXPECT_EQ(FindUnitFinding(kUnknownChip, false, size), u""_s) << size;
    }
    EXPECT_TRUE(FindUnitFinding(kUnknownChip, false, 12).startsWith(u"error: "_s));
    EXPECT_TRUE(FindUnitFinding(kUnknownChip, true, 12).startsWith(u"warning: "_s));
}

TEST(ImageSize, OverMcubootIsAny)
{
    BundleFolder bundle;
    bundle.UseMcuboot();
    EXPECT_TRUE(QFile::resize(bundle.Path(u"Resources/firmware.bin"_s), 1021));
    EXPECT_EQ(GetFindings(bundle.Root()).filter(u" at a time"_s), QStringList());
}
