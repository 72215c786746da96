// What is reported about the firmware image: the file, and its place in flash.
#include <gtest/gtest.h>

#include <QFile>

#include "tests/bundle_check/bundle_folder.h"

using namespace Qt::StringLiterals;

namespace {

constexpr auto kImage = "Resources/firmware.bin";

enum class Unit { Stm32G4, Stm32U5, Usb, Mcuboot };

class ImageBundle : public BundleFolder {
public:
    ImageBundle(Unit unit, QByteArray const& content)
    {
        if (unit == Unit::Stm32U5) {
            Set("otp_address", "0x0BFA0000");
        } else if (unit == Unit::Usb) {
            UseUsb();
        } else if (unit == Unit::Mcuboot) {
            UseMcuboot();
        }
        Write(QString::fromLatin1(kImage), content);
    }

    // Bytes that take no room on the disk.
    ImageBundle(Unit unit, qint64 size) : ImageBundle(unit, QByteArray())
    {
        EXPECT_TRUE(QFile::resize(Path(QString::fromLatin1(kImage)), size));
    }
};

// An image, by its content or its size, and the beginning of what is found: severity and text.
template <typename Image>
struct ImageCase {
    Unit unit;
    Image image;
    char const* finding;  // empty: nothing
    bool is_only = true;
};

template <typename Image>
void ExpectImageFindings(std::initializer_list<ImageCase<Image>> cases)
{
    for (auto const& [unit, image, finding, is_only] : cases) {
        ImageBundle const bundle(unit, image);
        auto const colon = QByteArray(finding).indexOf(':') + 1;
        auto const text = "config.ini:1: " + QByteArray(finding).left(colon) +
                          " firmware_filename:" + QByteArray(finding).mid(colon);
        EXPECT_TRUE(*finding == '\0' ? FindsNothing(bundle)
                    : is_only        ? FindsOnly(bundle, text)
                                     : Finds(bundle, text))
            << "unit " << static_cast<int>(unit) << ": " << finding;
    }
}

}  // namespace

TEST(FirmwareFile, MustExistAndBeAFile)
{
    ExpectFindings(R"(
firmware_filename=gone.bin => error: The firmware file 'gone.bin' does not exist.
firmware_filename=CP210xVCPDriver.app => error: The firmware file 'CP210xVCPDriver.app' is a folder.
)");
}

TEST(FirmwareFile, IsShippedOnlyFromInsideTheBundle)
{
    QByteArray const image(1024, '\xFF');
    BundleFolder bundle;
    bundle.Write(u"firmware.bin"_s, image);
    bundle.Set("firmware_filename", "../firmware.bin");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:1: warning: firmware_filename: The firmware file "
                          "'../firmware.bin' is outside the Resources folder"));
    auto const path = bundle.Path(QString::fromLatin1(kImage));
    bundle.Set("firmware_filename", path.toUtf8());
    EXPECT_TRUE(FindsNothing(bundle));

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

TEST(FirmwareFile, MustBeARawImageThatIsLongEnough)
{
    QByteArray const rest(96, '\xFF');
    auto const suffixed = rest + "UFD\x10" + QByteArray(4, '\xFF');
    ExpectImageFindings<QByteArray>({
        {Unit::Stm32G4, "", "error: The firmware file is empty."},
        {Unit::Stm32G4, rest.left(4),
         "error: The firmware file has 4 bytes; an image has at least 5."},
        {Unit::Stm32G4, rest.left(5), "warning: The image has 5 bytes"},
        {Unit::Usb, rest.left(7), "error: The firmware file has 7 bytes; an image has at least 8."},
        {Unit::Mcuboot, rest.left(7),
         "error: The firmware file has 7 bytes; an image has at least 8."},
        {Unit::Stm32G4, rest.left(8), ""},
        {Unit::Stm32G4, QByteArray("\x7F") + "ELF" + rest.left(92),
         "error: The firmware file is an ELF file, and the program writes every byte of it as it "
         "is; use the raw binary image."},
        {Unit::Stm32G4, "PK\x03\x04" + rest.left(92), "error: The firmware file is a ZIP archive,"},
        {Unit::Stm32G4, "DfuSe" + rest.left(91), "error: The firmware file is a DfuSe file,"},
        {Unit::Stm32G4, ":020000040800F2\n" + rest.left(80),
         "error: The firmware file is an Intel HEX file,"},
        {Unit::Stm32G4, "S0030000FC\r\n" + rest.left(84),
         "error: The firmware file is an S-record file,"},
        {Unit::Stm32G4, suffixed, "warning: The firmware file ends with a DFU suffix"},
        {Unit::Usb, suffixed, ""},
    });
}

TEST(FirmwareFile, ShouldConsistOfWholeWordsWhoseLastOneIsFree)
{
    QByteArray const image(1020, '\xFF');
    ExpectImageFindings<QByteArray>({
        {Unit::Stm32G4, image + "\xFF\xFF\xFF",
         "warning: The image has 1023 bytes, which is not a multiple of 4: the program pads it "
         "with "
         "zero bytes and then replaces the last four; bytes of the image that are lost: 3."},
        {Unit::Mcuboot, image + "\xFF\xFF\xFF", ""},
        {Unit::Stm32G4, image + "\x01\x02\x03\x04",
         "note: The last four bytes of the image, 01 02 03 04, are not written; 01 00 00 00 "
         "replaces them."},
        {Unit::Stm32G4, image + QByteArray(4, '\0'), ""},
    });
}

TEST(ImageInFlash, MustFitAfterItsAddress)
{
    ExpectImageFindings<qint64>({
        {Unit::Stm32G4, 512 * 1024 + 4,
         "error: The image has 524292 bytes, more than fit into the flash of the chips 0x469, "
         "0x479 "
         "from 0x08000000 on.",
         false},
        {Unit::Stm32U5, 2048 * 1024 + 8,
         "error: The image has 2097160 bytes, more than fit into the flash of the chip 0x482 from",
         false},
        {Unit::Usb, 512 * 1024, ""},
        {Unit::Mcuboot, 2048 * 1024, ""},
        {Unit::Mcuboot, 2048 * 1024 + 1,
         "warning: The image has 2097153 bytes, more than the flash of any supported chip."},
        {Unit::Mcuboot, qint64{0x80000000},
         "error: The image has 2147483648 bytes, more than MCUboot's serial recovery can count."},
    });
    ImageBundle bundle(Unit::Stm32G4, qint64{512 * 1024 - 4096 + 4});
    bundle.Set("programming_address", "0x08001000");
    bundle.Set("start_address", "0x08001000");
    EXPECT_TRUE(Finds(bundle,
                      "config.ini:1: error: firmware_filename: The image has 520196 bytes, more "
                      "than fit into the flash of the chips 0x469, 0x479 from 0x08001000 on."));
}

TEST(ImageInFlash, MustBeErasedInTheTimeThatTheProgramWaits)
{
    ExpectImageFindings<qint64>({
        {Unit::Stm32G4, 40 * 2048, ""},
        {Unit::Stm32G4, 40 * 2048 + 8,
         "note: On the chips 0x469, 0x479 the image covers 41 pages, which take about 1.0 s to "
         "erase. A bootloader that lists the short Erase command has 1 s for it, enough for 40 "
         "pages, so the update fails with such a unit; one that lists only Extended Erase has 5 "
         "s."},
        {Unit::Stm32G4, 204 * 2048, "note: On the chips 0x469, 0x479 the image covers 204 pages"},
        {Unit::Stm32G4, 204 * 2048 + 8,
         "error: On the chips 0x469, 0x479 the image covers 205 pages, which take about 5.0 s to "
         "erase; the program waits only 5 s, so the update fails."},
        // 255 pages, which take 0.87 s.
        {Unit::Stm32U5, 255 * 8192 - 8,
         "warning: The image has 2088952 bytes, and the flash of the chip 0x482 is programmed 16 "
         "bytes at a time. The last 8 bytes, which are written by themselves, are fewer."},
    });
}

TEST(ImageInFlash, HasNoMorePagesThanTheShortEraseCanName)
{
    EXPECT_FALSE(Finds(ImageBundle(Unit::Stm32G4, qint64{255 * 2048}), "config.ini:1: warning: "));
    ExpectImageFindings<qint64>(
        {{Unit::Stm32G4, 255 * 2048 + 8,
          "warning: On the chips 0x469, 0x479 the image covers 256 pages, but the short Erase "
          "command can name only 255 (its count byte for 256 means the whole flash): the update "
          "fails with a unit whose bootloader lists that command.",
          false},
         {Unit::Stm32U5, 255 * 8192 + 8, "warning: On the chip 0x482 the image covers 256 pages",
          false}});
}
