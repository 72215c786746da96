// What is reported about the firmware image: the file, its size, and its place in flash.
#include <gtest/gtest.h>

#include <QFile>

#include "tests/bundle_check/image_findings.h"
#include "tests/bundle_check/test_images.h"

using namespace Qt::StringLiterals;

namespace {

constexpr auto kImage = "Resources/firmware.bin";

}  // namespace

TEST(FirmwareFile, MustExistAndBeAFile)
{
    ExpectFindings(R"(
firmware_filename=gone.bin => error: The firmware file 'gone.bin' does not exist; put the image into the Resources folder, or correct firmware_filename.
firmware_filename=CP210xVCPDriver.app => error: The firmware file 'CP210xVCPDriver.app' is a folder; put the image into the Resources folder, or correct firmware_filename.
firmware_filename=/home/me/firmware.bin => error: '/home/me/firmware.bin' is an absolute path, which a customer's computer does not have; write only the file name.
)");
}

TEST(FirmwareFile, IsShippedOnlyFromInsideTheBundle)
{
    auto const image = MakeStm32Image(1024);
    BundleFolder bundle;
    bundle.Delete(QString::fromLatin1(kImage));
    bundle.Write(u"firmware.bin"_s, image);
    bundle.Set("firmware_filename", "../firmware.bin");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:1: warning: firmware_filename: The firmware file "
                          "'../firmware.bin' is outside the Resources folder"));
    bundle.Write(QString::fromLatin1(kImage), image);
    auto const path = bundle.Path(QString::fromLatin1(kImage));
    bundle.Set("firmware_filename", path.toUtf8());
    EXPECT_TRUE(FindsOnly(bundle, "config.ini:1: error: firmware_filename: '/"))
        << "the bundle has another path on the customer's computer";

    bundle.Set("firmware_filename", "firmware.bin");
    bundle.Delete(QString::fromLatin1(kImage));
    BundleFolder elsewhere;
    ASSERT_TRUE(QFile::link(elsewhere.Path(QString::fromLatin1(kImage)), path));
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:1: warning: firmware_filename: 'firmware.bin' is, or lies "
                          "behind, a symbolic link out of the bundle, to '"));
    bundle.Delete(QString::fromLatin1(kImage));
    bundle.Write(u"Resources/images/one.bin"_s, image);
    ASSERT_TRUE(QFile::link(u"images/one.bin"_s, path));
    EXPECT_TRUE(FindsNothing(bundle)) << "a link inside the bundle";
}

TEST(FirmwareFile, MustBeLongEnough)
{
    auto const image = MakeStm32Image(100);
    ExpectImageFindings({
        {Unit::G4, "",
         "error: The firmware file 'firmware.bin' is empty; put the image into the Resources "
         "folder, or correct firmware_filename."},
        {Unit::G4, image.left(4),
         "error: The firmware file has 4 bytes, but an image has at least 5; is it the right "
         "file?"},
        {Unit::G4, image.left(5),
         "error: The image has no vector table at 0x08000000: there is no room for one"},
        {Unit::Usb, image.left(7),
         "error: The firmware file has 7 bytes, but an image has at least 8;"},
        {Unit::Mcuboot, image.left(7),
         "error: The firmware file has 7 bytes, but an image has at least 8;"},
        {Unit::Usb, image.left(8), ""},
        {Unit::G4, image.left(72), ""},
    });
}

// Nothing else is reported about a file of another kind, whatever its size: it would only follow.
TEST(FirmwareFile, MustBeARawImage)
{
    constexpr char kFromElf[] = "make the raw image with 'objcopy -O binary FILE.elf FILE.bin'";
    constexpr char kNoFirmware[] =
        "name the raw image instead, made with 'objcopy -O binary FILE.elf FILE.bin'";
    constexpr char kUnpack[] = "unpack it; if that gives an ELF file, make the raw image with";
    auto const rest = QByteArray(101, '\xFF');
    struct {
        QByteArray content;
        char const* name;
        char const* cure;
    } const rows[] = {
        {QByteArray("\x7F") + "ELF" + rest, "an ELF file", kFromElf},
        {"\xCF\xFA\xED\xFE" + rest, "a Mach-O program", kFromElf},
        {"\xCA\xFE\xBA\xBE" + rest, "a universal Mach-O program", kFromElf},
        {"MZ\x90" + rest, "a program for Windows", kNoFirmware},
        {"!<arch>\n" + rest, "a static library", kFromElf},
        {"DfuSe" + rest, "a DfuSe file", kFromElf},
        {"UF2\n\x57\x51\x5D\x9E" + rest, "a UF2 file", kFromElf},
        {"\x1F\x8B" + rest, "a gzip archive",
         "unpack it with 'gunzip'; if that gives an ELF file, make the raw image with"},
        {"PK\x03\x04" + rest, "a ZIP archive", "unpack it with 'unzip'; if that gives an ELF"},
        {QByteArray("\xFD") + "7zXZ" + rest, "an xz archive", kUnpack},
        {"firmware.bin" + QByteArray(245, '\0') + "ustar" + rest, "a tar archive",
         "unpack it with 'tar -xf'; if that gives an ELF"},
        {"\x89PNG\r\n\x1A\n" + rest, "a PNG picture", kNoFirmware},
        {"<!DOCTYPE html>\n<title>404</title>", "an HTML page", kNoFirmware},
        {"\r\n\t<HTML>", "an HTML page", kNoFirmware},
        {"<?xml version='1.0'?>", "an XML file", kNoFirmware},
        {"{\n  \"image\": 1\n}\n", "a JSON file", kNoFirmware},
        {"[1, 2, 3]\n", "a JSON file", kNoFirmware},
        {"version https://git-lfs.github.com/spec/v1\noid sha256:00\nsize 12\n",
         "a Git LFS pointer",
         "get the file itself with 'git lfs pull'; if that gives an ELF file, make"},
        {"firmware goes here\n", "a text file", kNoFirmware},
        {"?", "a text file", kNoFirmware},
        {QByteArray("\xFF\xFE:\0000\0", 6) + rest, "a text file", kNoFirmware},
        {":020000040800F2\n" + rest, "an Intel HEX file",
         "make the raw image with 'objcopy -I ihex -O binary FILE.hex FILE.bin'"},
        {"\r\n\n  :020000040800f2\n", "an Intel HEX file", "make the raw image with 'objcopy -I"},
        {"\xEF\xBB\xBF:020000040800F2\n", "an Intel HEX file", "make the raw image with"},
        {"S0030000FC\r\n" + rest, "an S-record file",
         "make the raw image with 'objcopy -I srec -O binary FILE.s19 FILE.bin'"},
        {"\ns00600004844521b\n", "an S-record file", "make the raw image with 'objcopy -I srec"},
        {MakeStm32Image(101) + "UFD\x10" + rest.left(4), "a file with a DFU suffix",
         "remove the suffix with 'dfu-suffix -D FILE', or make the raw image with"},
    };
    for (auto const& [content, name, cure] : rows) {
        auto const finding = QByteArray("error: The firmware file is ") + name +
                             ", and the program writes every byte of it as it is; " + cure;
        ExpectImageFindings({{Unit::G4, content, finding}});
    }
    ExpectImageFindings(
        {{Unit::Mcuboot, QByteArray("\x7F") + "ELF" + rest,
          "error: The firmware file is an ELF file, and the program writes every byte of it as it "
          "is; make the raw image with 'objcopy -O binary FILE.elf FILE.bin', and sign it with "
          "'imgtool sign' if it is not signed yet."},
         {Unit::Usb, "text", "error: The firmware file is a text file"},
         {Unit::Usb, MakeMcubootParts(1001).Image(),
          "error: The firmware file is an image for MCUboot, which begins with a header and cannot "
          "be started over this interface; use the raw image, made with 'objcopy -O binary "
          "FILE.elf FILE.bin', or write interface=mcuboot_serial."},
         {Unit::G4, MakeMcubootParts(1001).Image(),
          "error: The firmware file is an image for MCUboot"}});
}

TEST(FirmwareFile, OfAnotherKindIsRecognisedAtAnySize)
{
    ImageBundle const bundle(Unit::G4, QByteArray("\x7F") + "ELF");
    ASSERT_TRUE(QFile::resize(bundle.Path(QString::fromLatin1(kImage)), 40 * 1024 * 1024));
    EXPECT_EQ(bundle.Findings().size(), 1);
    EXPECT_TRUE(bundle.Findings().first().startsWith(u"error: The firmware file is an ELF"_s));
}

TEST(FirmwareFile, ShouldConsistOfWholeWordsWhoseLastOneIsFree)
{
    auto const image = MakeStm32Image(1020);
    ExpectImageFindings({
        {Unit::G4, image + "\xFF\xFF\xFF",
         "warning: The image has 1023 bytes, which is not a multiple of 4. The program adds zero "
         "bytes and then replaces the last four, so the image loses 3 of its bytes. Fill it up to "
         "a multiple of 8, and leave its last four bytes free."},
        {Unit::Mcuboot, MakeMcubootParts(1023).Image(), ""},
        {Unit::G4, image + "\x01\x02\x03\x04",
         "note: The last four bytes of the image, 01 02 03 04, are lost: the program writes 01 00 "
         "00 00 instead. Have the linker script keep the last word free."},
        {Unit::G4, image + QByteArray(4, '\0'), ""},
    });
}

TEST(ImageInFlash, MustFitAfterItsAddress)
{
    ExpectSizeFindings(R"(
+g4 524292 => error: The image has 524292 bytes, more than fit into the flash of the chips 0x469, 0x479 from 0x08000000 on; make the firmware smaller.
+u5 2097160 => error: The image has 2097160 bytes, more than fit into the flash of the chip 0x482 from
usb 524288 => clean
mcuboot 2097152 => clean
mcuboot 2097153 => warning: The image has 2097153 bytes, more than the flash of any supported chip; give the size of the unit's slot with --slot-size.
mcuboot 2147483648 => error: The image has 2147483648 bytes, more than MCUboot's serial recovery can handle; make the firmware smaller.
)");
    ImageBundle bundle(Unit::G4, qint64{512 * 1024 - 4096 + 4});
    bundle.Set("programming_address", "0x08001000");
    bundle.Set("start_address", "0x08001000");
    EXPECT_TRUE(Finds(bundle,
                      "config.ini:1: error: firmware_filename: The image has 520196 bytes, more "
                      "than fit into the flash of the chips 0x469, 0x479 from 0x08001000 on; make "
                      "the firmware smaller."));
}

// 40 and 204 pages of the STM32G4; 255 of the STM32U5, which take 0.87 s.
TEST(ImageInFlash, MustBeErasedInTheTimeThatTheProgramWaits)
{
    ExpectSizeFindings(R"(
g4 81920 => clean
g4 81928 => note: On the chips 0x469, 0x479 the image covers 41 pages, which take about 1.004 s to erase. A bootloader that lists the short Erase command has 1 s for it, enough for 40 pages, so the update fails with such a unit; one that lists only Extended Erase has 5 s. Find out which of them the unit's bootloader lists, or make the image smaller.
g4 417792 => note: On the chips 0x469, 0x479 the image covers 204 pages, which take about 4.998 s to erase.
g4 417800 => error: On the chips 0x469, 0x479 the image covers 205 pages, which take about 5.022 s to erase; the program waits only 5 s, so the update fails. Make the image smaller.
u5 2088952 => note: The image has 2088952 bytes, and the flash of the chip 0x482 is programmed 16 bytes
)");
}

TEST(ImageInFlash, HasNoMorePagesThanTheShortEraseCanName)
{
    ExpectSizeFindings(R"(
g4 522240 => error: On the chips 0x469, 0x479 the image covers 255 pages, which take about
+g4 522248 => warning: On the chips 0x469, 0x479 the image covers 256 pages, but the short Erase command can name only 255 (its count byte for 256 means the whole flash): the update fails with a unit whose bootloader lists that command. Find out whether it does, or make the image smaller.
+u5 2088968 => warning: On the chip 0x482 the image covers 256 pages
)");
}

// Over UART the last 8 bytes are a write of their own, which begins at a programming unit.
TEST(ImageInFlash, ConsistsOfWholeProgrammingUnits)
{
    ExpectSizeFindings(R"(
g4 72 => clean
g4 1021 => warning: The image has 1021 bytes, which is not a multiple of 4.
g4 1023 => warning: The image has 1023 bytes, which is not a multiple of 4.
g4 1024 => clean
+g4 73 => error: The image has 73 bytes, and the flash of
g4 76 => error: The image has 76 bytes, and the flash of
+g4 1017 => error: The image has 1017 bytes, and the flash of
g4 1020 => error: The image has 1020 bytes, and the flash of the chips 0x469, 0x479 is programmed 8 bytes at a time. The last 8 bytes are written separately and do not begin at a multiple of that, so the unit does not store them, and the window shows DONE nevertheless. Fill the image up to a size that is a multiple of 8.
+u5 72 => note: The image has 72 bytes, and the flash of the chip 0x482
+u5 1013 => note: The image has 1013 bytes, and the flash of the chip 0x482
u5 1016 => note: The image has 1016 bytes, and the flash of the chip 0x482 is programmed 16 bytes at a time. The last 8 bytes are written separately and are fewer than that. Not every bootloader stores them, and the window shows DONE nevertheless. Compare the flash of a real unit with the image.
u5 76 => error: The image has 76 bytes, and the flash of the chip 0x482
+u5 1009 => error: The image has 1009 bytes, and the flash of the chip 0x482
+u5 1017 => error: The image has 1017 bytes, and the flash of the chip 0x482
u5 1024 => error: The image has 1024 bytes, and the flash of the chip 0x482 is programmed 16 bytes at a time. The last 8 bytes are written separately and do not begin at a multiple of that, so the unit does not store them, and the window shows DONE nevertheless. Fill the image up to a size that is 8 more than a multiple of 16.
usb 1016 => clean
usb 1021 => warning: The image has 1021 bytes, and the flash of the chips 0x469, 0x479 is programmed 8 bytes at a time. Not every bootloader stores an incomplete end (here 5 of 8 bytes). Fill the image up to a multiple of 8 bytes.
usb-u5 1024 => clean
usb-u5 1016 => warning: The image has 1016 bytes, and the flash of the chip 0x482 is programmed 16 bytes at a time. Not every bootloader stores an incomplete end (here 8 of 16 bytes). Fill the image up to a multiple of 16 bytes.
other 72 => clean
other 1024 => clean
other 76 => error: The image has 76 bytes, and the flash of the chips
mcuboot 1021 => clean
)");
}

TEST(VectorTable, HasAStackInRamAndAResetHandlerInTheImage)
{
    auto const table = [](uint32_t stack, uint32_t reset) {
        return ToBytes(stack) + ToBytes(reset) + QByteArray(1016, '\xFF');
    };
    constexpr uint32_t kReset = 0x08000101;
    constexpr char kNoStack[] =
        "error: The image has no vector table at 0x08000000: the first word, 0x";
    constexpr char kEven[] =
        "error: The image has no vector table at 0x08000000: the second word, 0x08000100, is not "
        "the odd address of a reset handler. Use the raw image that is linked for 0x08000000, made "
        "with 'objcopy -O binary FILE.elf FILE.bin', or correct programming_address.";
    for (auto const unit : {Unit::G4, Unit::Usb}) {
        ExpectImageFindings({
            {unit, QByteArray(1024, '\xFF'),
             "error: Every byte of the image is 0xff, so there is no firmware in it; build it "
             "again."},
            {unit, QByteArray(1023, '\0'), "error: Every byte of the image is 0x00,"},
            {unit, table(0x20010002, kReset).chopped(3), kNoStack},
            {unit, table(kTestStack, 0x08000100), kEven},
        });
    }
    ExpectImageFindings({
        {Unit::G4, table(0x20000000, kReset), kNoStack},
        {Unit::G4, table(0x08000000, kReset), kNoStack},
        {Unit::G4, table(0, kReset), kNoStack},
        {Unit::G4, table(kTestStack, 0x08000401),
         "error: The image has no vector table at 0x08000000: its reset handler at 0x08000400 is "
         "outside the image, which is written to 0x08000000."},
        {Unit::G4, table(kTestStack, 0x00000101),
         "error: The image has no vector table at 0x08000000: its reset handler at 0x00000100"},
        {Unit::G4, table(kTestStack, 0x080003FF), ""},
        // The largest RAM of the chips that the configuration can be for, and their other memory.
        {Unit::Usb, table(0x20020000, kReset), ""},
        {Unit::Usb, table(0x20020004, kReset), kNoStack},
        {Unit::Usb, table(0x10008000, kReset), ""},
        {Unit::Usb, table(0x10008004, kReset), kNoStack},
        {Unit::Usb, table(0x10000000, kReset), kNoStack},
        // Another family.
        {Unit::UsbU5, table(0x20020004, kReset), ""},
        {Unit::UsbU5, table(0x28004000, kReset), ""},
        {Unit::UsbU5, table(0x10004000, kReset),
         "error: The image has no vector table at 0x08000000: the first word, 0x10004000, is not "
         "an initial stack pointer (a multiple of 4 in the RAM of the chip 0x482)."},
    });
}

// The vectors of the chip's own exceptions take 64 bytes.
TEST(VectorTable, IsNotOverwrittenByTheTrailer)
{
    constexpr char kOverwritten[] =
        "error: The program replaces the last four bytes of the image, and they are in the vector "
        "table, which has at least 64 bytes from 0x08000000; is the image cut off?";
    auto const image = MakeStm32Image(100);
    ExpectImageFindings({
        {Unit::G4, image.left(8), kOverwritten},
        {Unit::G4, image.left(9), kOverwritten},
        {Unit::U5, image.left(8), kOverwritten},
        {Unit::G4, image.left(64), kOverwritten},
        {Unit::G4, image.left(72), ""},
        {Unit::Usb, image.left(8), ""},
    });
    BundleFolder bundle;
    bundle.Write(QString::fromLatin1(kImage),
                 QByteArray(512, 'h') + MakeStm32Image(64, 0x08000200));
    bundle.Set("start_address", "0x08000200");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:1: error: firmware_filename: The program replaces the last "
                          "four bytes of the image, and they are in the vector table, which has at "
                          "least 64 bytes from 0x08000200;"));
}

TEST(VectorTable, IsWhereTheUnitIsStarted)
{
    ExpectFindings({
        {{{"start_address", "0x08000004"}},
         "config.ini:2: error: start_address: The unit is started at 0x08000004, but the image's "
         "vector table is at 0x08000000; write 0x08000000."},
        {{{"programming_address", "0x08004000"}, {"start_address", "0x08004000"}},
         "config.ini:1: error: firmware_filename: The image has no vector table at 0x08004000: its "
         "reset handler at 0x08000004 is outside the image, which is written to 0x08004000.",
         false},
    });
    // A header of the vendor's own in front of the table.
    BundleFolder bundle;
    bundle.Write(QString::fromLatin1(kImage),
                 QByteArray(512, 'h') + MakeStm32Image(512, 0x08000200));
    EXPECT_TRUE(
        FindsOnly(bundle, "config.ini:1: error: firmware_filename: The image has no vector"));
    bundle.Set("start_address", "0x08000200");
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(VectorTable, IsNotUsedWhenTheProgrammingAddressIsNotInFlash)
{
    BundleFolder bundle;
    bundle.Set("programming_address", "x");
    EXPECT_TRUE(Finds(bundle, "config.ini:3: error: programming_address: "));
    EXPECT_FALSE(Finds(bundle, "config.ini:1: "));
}

TEST(BootModeMarker, IsNotWhereTheStackBegins)
{
    // The stack of the image begins at 0x20010000.
    ExpectFindings(R"(
boot_mode_address=0x2000fffc => error: The marker at 0x2000fffc is in the image's stack, which grows downwards from 0x20010000, so the firmware overwrites the marker before it reads it; choose a word that the linker script keeps free, for example from 0x20010000 on.
boot_mode_address=0x2000ff98 => error: The marker at 0x2000ff98 is in the image's stack
boot_mode_address=0x2000ff94 => clean
boot_mode_address=0x20010000 => clean
)");
    constexpr char kLower[] =
        "error: boot_mode_address: The marker at 0x2001fffc is in the image's stack, "
        "which grows downwards from 0x20020000, so the firmware overwrites the marker before it "
        "reads it; "
        "have the linker script begin the stack at 0x2001fff8 or lower, which keeps this word "
        "free.";
    struct {
        uint32_t stack;
        char const* marker;
        char const* finding;
    } const rows[] = {
        {0x20020000, "0x2001fffc", kLower},
        {0x2001FFF8, "0x2001fffc", nullptr},
        // The end of the smaller RAM of the two chips.
        {0x2001C000, "0x2001bffc",
         "error: boot_mode_address: The marker at 0x2001bffc is in the image's stack, "
         "which grows downwards from 0x2001c000, so the firmware overwrites the marker before it "
         "reads it; "
         "have the linker script begin the stack at 0x2001bff8 or lower,"},
        // Where the marker cannot be is enough to know.
        {0x10008000, "0x10007ffc", "error: boot_mode_address: 0x10007ffc is in neither the RAM"},
        {0x20004000, "0x20003ffc", "error: boot_mode_address: 0x20003ffc is in the RAM below"},
    };
    for (auto const& [stack, marker, finding] : rows) {
        BundleFolder bundle;
        bundle.Write(QString::fromLatin1(kImage), MakeStm32Image(1024, 0x08000000, stack));
        bundle.Set("boot_mode_address", marker);
        EXPECT_TRUE(finding == nullptr
                        ? FindsNothing(bundle)
                        : FindsOnly(bundle, (QByteArray("config.ini:6: ") + finding).constData()))
            << marker;
    }
}
