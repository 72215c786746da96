// What is reported about the firmware image: the file, and its place in flash.
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include "tests/bundle_check/bundle_folder.h"

using namespace Qt::StringLiterals;

namespace {

constexpr auto kImage = "Resources/firmware.bin";

void WriteImage(BundleFolder& bundle, QByteArray const& content)
{
    bundle.Write(QString::fromLatin1(kImage), content);
}

// Gives it that many bytes, which take no room on the disk.
void ResizeImage(BundleFolder& bundle, qint64 size)
{
    ASSERT_TRUE(QFile::resize(bundle.Path(QString::fromLatin1(kImage)), size));
}

}  // namespace

TEST(FirmwareFile, MustExistAndBeAFile)
{
    ExpectFindings(R"(
firmware_filename=gone.bin => error: The firmware file 'gone.bin' does not exist.
firmware_filename=CP210xVCPDriver.app => error: The firmware file 'CP210xVCPDriver.app' is a folder.
)");
}

TEST(FirmwareFile, MustNotBeEmptyOrShort)
{
    BundleFolder bundle;
    WriteImage(bundle, "");
    EXPECT_TRUE(
        FindsOnly(bundle, "config.ini:1: error: firmware_filename: The firmware file is empty."));
    WriteImage(bundle, QByteArray(7, '\xFF'));
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:1: error: firmware_filename: The firmware file has 7 bytes; "
                          "an image has at least 8."));
    WriteImage(bundle, QByteArray(8, '\xFF'));
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(FirmwareFile, OutsideTheBundleIsNotShipped)
{
    BundleFolder bundle;
    bundle.Write(u"firmware.bin"_s, QByteArray(1024, '\xFF'));
    bundle.Set("firmware_filename", "../firmware.bin");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:1: warning: firmware_filename: The firmware file "
                          "'../firmware.bin' is outside the Resources folder"));
    bundle.Set("firmware_filename", bundle.Path(QString::fromLatin1(kImage)).toUtf8());
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(FirmwareFile, BehindALinkOutOfTheBundleIsNotShipped)
{
    QTemporaryDir const elsewhere;
    QFile built(elsewhere.filePath(u"out.bin"_s));
    ASSERT_TRUE(built.open(QIODevice::WriteOnly));
    built.write(QByteArray(1024, '\xFF'));
    built.close();
    BundleFolder bundle;
    bundle.Delete(QString::fromLatin1(kImage));
    ASSERT_TRUE(QFile::link(built.fileName(), bundle.Path(QString::fromLatin1(kImage))));
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:1: warning: firmware_filename: 'firmware.bin' is, or lies "
                          "behind, a symbolic link out of the bundle, to '"));
}

TEST(FirmwareFile, BehindALinkInsideTheBundleIsShipped)
{
    BundleFolder bundle;
    bundle.Write(u"Resources/images/one.bin"_s, QByteArray(1024, '\xFF'));
    bundle.Delete(QString::fromLatin1(kImage));
    ASSERT_TRUE(QFile::link(u"images/one.bin"_s, bundle.Path(QString::fromLatin1(kImage))));
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(FirmwareFile, WhoseLengthIsNotAMultipleOfFourLosesItsEndOverUart)
{
    BundleFolder bundle;
    WriteImage(bundle, QByteArray(1023, '\xFF'));
    EXPECT_TRUE(
        FindsOnly(bundle,
                  "config.ini:1: warning: firmware_filename: The image has 1023 bytes, which is "
                  "not a multiple of 4: the program adds 1 zero bytes and then replaces "
                  "the last four, of which 3 belong to the image."));
}

TEST(FirmwareFile, WhoseLengthIsNotAMultipleOfFourIsNotedOverUsbAndFineForMcuboot)
{
    BundleFolder usb;
    usb.UseUsb();
    WriteImage(usb, QByteArray(1023, '\xFF'));
    EXPECT_TRUE(FindsOnly(usb, "config.ini:1: note: firmware_filename: The image has 1023 bytes"));

    BundleFolder mcuboot;
    mcuboot.UseMcuboot();
    WriteImage(mcuboot, QByteArray(1023, '\xFF'));
    EXPECT_TRUE(FindsNothing(mcuboot));
}

TEST(FirmwareFile, MustBeARawImage)
{
    QByteArray const rest(100, '\xFF');
    std::pair<QByteArray, char const*> const wrappings[] = {
        {"\x7F"
         "ELF",
         "an ELF file"},
        {"PK\x03\x04", "a ZIP archive"},
        {"DfuSe", "a DfuSe file"},
        {":020000040800F2\n", "an Intel HEX file"},
        {"S0030000FC\r\n", "an S-record file"}};
    for (auto const& [head, name] : wrappings) {
        BundleFolder bundle;
        auto const content = head + rest;
        WriteImage(bundle, content.left(100));
        auto const text = "config.ini:1: error: firmware_filename: The firmware file is " +
                          QByteArray(name) + ", and the program writes";
        EXPECT_TRUE(FindsOnly(bundle, text));
    }
}

TEST(FirmwareFile, WithADfuSuffixIsForUsbOnly)
{
    QByteArray const suffixed = QByteArray(1016, '\xFF') + "UFD\x10" + QByteArray(4, '\xFF');
    BundleFolder bundle;
    WriteImage(bundle, suffixed);
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:1: warning: firmware_filename: The firmware file ends "
                          "with a DFU suffix"));
    bundle.UseUsb();
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(LastFourBytes, AreNotedWhenTheyHoldSomething)
{
    BundleFolder bundle;
    WriteImage(bundle, QByteArray(1020, '\xFF') + "\x01\x02\x03\x04");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:1: note: firmware_filename: The last four bytes of "
                          "the image, 01 02 03 04, are not written; 01 00 00 00 replaces them."));
    WriteImage(bundle, QByteArray(1024, '\0'));
    EXPECT_TRUE(FindsNothing(bundle));
}

namespace {

enum class Unit { Stm32G4, Stm32U5, Usb, Mcuboot };

// What is found about an image of so many bytes: the beginning of the only finding (empty: there is
// none), or of one of several.
struct SizeCase {
    Unit unit;
    qint64 size;
    char const* only;
    char const* one_of_several = nullptr;
};

void ExpectFindings(std::initializer_list<SizeCase> cases)
{
    for (auto const& [unit, size, only, one] : cases) {
        BundleFolder bundle;
        if (unit == Unit::Stm32U5) {
            bundle.Set("otp_address", "0x0BFA0000");
        } else if (unit == Unit::Usb) {
            bundle.UseUsb();
        } else if (unit == Unit::Mcuboot) {
            bundle.UseMcuboot();
        }
        ResizeImage(bundle, size);
        QByteArray const place = "config.ini:1: ";
        auto const text = QByteArray(one != nullptr ? one : only)
                              .replace(QByteArray(": The"), ": firmware_filename: The")
                              .replace(": On", ": firmware_filename: On");
        EXPECT_TRUE(one != nullptr   ? Finds(bundle, place + text)
                    : text.isEmpty() ? FindsNothing(bundle)
                                     : FindsOnly(bundle, place + text))
            << "unit " << static_cast<int>(unit) << ", " << size << " bytes: " << text.data();
    }
}

}  // namespace

TEST(ImageInFlash, MustFit)
{
    ExpectFindings({
        {Unit::Stm32G4, 512 * 1024 + 4, nullptr,
         "error: The image has 524292 bytes, more than fit into the flash of the chips 0x469, "
         "0x479 "
         "from 0x08000000 on."},
        {Unit::Stm32U5, 1024 * 1024, "note: On the chip 0x482 the image covers 128 pages"},
        {Unit::Stm32U5, 2048 * 1024 + 4, nullptr,
         "error: The image has 2097156 bytes, more than fit into the flash of the chip 0x482 from"},
        {Unit::Usb, 512 * 1024, ""},
        {Unit::Mcuboot, 2048 * 1024, ""},
        {Unit::Mcuboot, 2048 * 1024 + 1,
         "warning: The image has 2097153 bytes, more than the flash of any supported chip."},
        {Unit::Mcuboot, qint64{0x80000000},
         "error: The image has 2147483648 bytes, more than MCUboot's serial recovery can count."},
    });
}

TEST(ImageInFlash, MustFitAfterItsAddress)
{
    BundleFolder bundle;
    bundle.Set("programming_address", "0x08001000");
    bundle.Set("start_address", "0x08001000");
    ResizeImage(bundle, 512 * 1024 - 4096 + 4);
    EXPECT_TRUE(Finds(bundle,
                      "config.ini:1: error: firmware_filename: The image has 520196 bytes, more "
                      "than fit into the flash of the chips 0x469, 0x479 from 0x08001000 on."));
}

TEST(ImageInFlash, MustBeErasedInTheTimeThatTheProgramWaits)
{
    ExpectFindings({
        {Unit::Stm32G4, 40 * 2048, ""},
        {Unit::Stm32G4, 40 * 2048 + 4,
         "note: On the chips 0x469, 0x479 the image covers 41 pages, which take about 1.0 s to "
         "erase. A bootloader that lists the short Erase command has 1 s for it, enough for 40 "
         "pages, so the update fails with such a unit; one that lists only Extended Erase has 5 "
         "s."},
        {Unit::Stm32G4, 204 * 2048, "note: On the chips 0x469, 0x479 the image covers 204 pages"},
        {Unit::Stm32G4, 204 * 2048 + 4,
         "error: On the chips 0x469, 0x479 the image covers 205 pages, which take about 5.0 s to "
         "erase; the program waits only 5 s, so the update fails."},
        {Unit::Stm32U5, 40 * 2048 + 4, ""},
        {Unit::Stm32U5, 204 * 8192, "note: On the chip 0x482 the image covers 204 pages"},
        {Unit::Stm32U5, 204 * 8192 + 4, "error: On the chip 0x482 the image covers 205 pages"},
    });
}

TEST(ImageInFlash, HasPageNumbersThatFitIntoOneByte)
{
    BundleFolder bundle;
    ResizeImage(bundle, 256 * 2048);
    EXPECT_FALSE(Finds(bundle, "config.ini:1: warning: "));
    ExpectFindings({{Unit::Stm32G4, 256 * 2048 + 4, nullptr,
                     "warning: On the chips 0x469, 0x479 the image covers 257 pages, whose numbers "
                     "do not fit into one byte: with a bootloader that lists the short Erase "
                     "command"}});
}
