// What is reported about an image that was signed for MCUboot, or was not.
#include <gtest/gtest.h>

#include "tests/bundle_check/image_findings.h"
#include "tests/bundle_check/test_images.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kFirmwareSize = 1000;

QByteArray MakeGoodImage()
{
    return MakeMcubootParts(kFirmwareSize).Image();
}

// With other bytes at an offset.
QByteArray Change(QByteArray image, qsizetype offset, QByteArray const& bytes)
{
    return image.replace(offset, bytes.size(), bytes);
}

// With another TLV area, made for the digest.
template <typename MakeArea>
QByteArray WithArea(MakeArea const& make_area)
{
    auto const parts = MakeMcubootParts(kFirmwareSize);
    return parts.Hashed() + make_area(parts.Digest());
}

QByteArray MakeProtectedImage(QByteArray const& area)
{
    return MakeMcubootParts(kFirmwareSize, area).Image();
}

void ExpectImage(QByteArray const& image, QByteArray const& finding)
{
    ExpectImageFindings({{Unit::Mcuboot, image, finding}});
}

}  // namespace

TEST(McubootImage, BeginsWithAHeaderOfItsOwn)
{
    ExpectImage(MakeGoodImage(), "");
    ExpectImage(MakeStm32Image(kFirmwareSize),
                "error: The image has no MCUboot header, and MCUboot does not start such an image; "
                "sign the raw image with 'imgtool sign'.");
    ExpectImage(MakeStm32Image(2048) + MakeGoodImage(),
                "error: The MCUboot header is at byte 2048 of the image and not at its beginning, "
                "as in a file that is merged with the bootloader; use the signed image of the "
                "firmware alone.");
    ExpectImage(MakeGoodImage() + MakeGoodImage(),
                "error: Another MCUboot header is in the 1104 bytes after the image, as in a "
                "merged file;");
    ExpectImage(MakeGoodImage().left(31), "error: The image is cut off in its MCUboot header;");
    ExpectImage(
        Change(MakeGoodImage(), 8, ToBytes<uint16_t>(31)),
        "error: The MCUboot header gives its own size as 31 bytes, but it has at least 32;");
}

TEST(McubootImage, ContainsARawImage)
{
    auto const sign = [](QByteArray const& firmware, uint32_t flags = 0) {
        auto parts = MakeMcubootParts(firmware.size(), {}, flags);
        parts.firmware = firmware;
        return parts.Image();
    };
    auto const rest = QByteArray(1000, '\xFF');
    struct {
        QByteArray firmware;
        char const* finding;
    } const rows[] = {
        {QByteArray("\x7F") + "ELF" + rest,
         "error: The firmware in the signed image is an ELF file; make the raw image with 'objcopy "
         "-O binary FILE.elf FILE.bin', and sign that with 'imgtool sign'."},
        {":020000040800F2\n" + rest,
         "error: The firmware in the signed image is an Intel HEX file; make the raw image with "
         "'objcopy -I ihex -O binary FILE.hex FILE.bin', and sign that with 'imgtool sign'."},
        {rest + "UFD\x10" + rest.left(4),
         "error: The firmware in the signed image is a file with a DFU suffix;"},
        {MakeGoodImage(),
         "error: The firmware in the signed image is an image for MCUboot, so it was signed twice; "
         "sign the raw image, made with 'objcopy -O binary FILE.elf FILE.bin', with 'imgtool "
         "sign'."},
        {rest,
         "error: Every byte of the firmware in the signed image is 0xff, so there is no firmware "
         "in it; build it again."},
        {QByteArray(1000, '\0'),
         "error: Every byte of the firmware in the signed image is 0x00, so there"},
    };
    for (auto const& [firmware, finding] : rows) {
        ExpectImage(sign(firmware), finding);
        ExpectImage(sign(firmware, 0x04), "note: The image is encrypted");
    }
    for (auto const* blank : {"0xff", "0x00"}) {
        ExpectImage(QByteArray(1000, blank[2] == 'f' ? '\xFF' : '\0'),
                    QByteArray("error: Every byte of the image is ") + blank +
                        ", so there is no firmware in it; build it again.");
    }
}

TEST(McubootImage, IsAsLongAsItsHeaderSays)
{
    auto const image = MakeGoodImage();
    constexpr char kCut[] =
        "error: The MCUboot header announces 64 bytes of header, 1000 of firmware and a TLV area, "
        "but the file has 500: it is cut off or damaged;";
    ExpectImage(image.left(500), kCut);
    ExpectImage(Change(image, 12, ToBytes<uint32_t>(0xFFFFFFFF)),
                "error: The MCUboot header announces 64 bytes of header, 4294967295 of firmware");
    ExpectImage(Change(image, 8, ToBytes<uint16_t>(0xFFFF)),
                "error: The MCUboot header announces 65535 bytes of header");
    ExpectImage(Change(image, 12, ToBytes<uint32_t>(0)),
                "error: The MCUboot header announces 64 bytes of header, 0 of firmware");
}

TEST(McubootImage, EndsWithAWholeTlvAreaThatHasTheDigest)
{
    constexpr char kIncomplete[] = "error: The image's TLV area is missing or incomplete;";
    auto const image = MakeGoodImage();
    ExpectImage(image.chopped(1), kIncomplete);
    ExpectImage(image.chopped(36), kIncomplete);
    ExpectImage(Change(image, 1064, ToBytes<uint16_t>(0x6908)), kIncomplete);
    ExpectImage(Change(image, 1066, ToBytes<uint16_t>(3)), kIncomplete);
    ExpectImage(Change(image, 1070, ToBytes<uint16_t>(33)), kIncomplete);
    ExpectImage(Change(image, 1070, ToBytes<uint16_t>(31)), kIncomplete);
    ExpectImage(WithArea([](QByteArray const&) { return MakeTlvArea(0x6907, {}); }),
                "error: The image's TLV area has no SHA-256, SHA-384 or SHA-512;");
    ExpectImage(WithArea([](QByteArray const& digest) {
                    return MakeTlvArea(0x6907, MakeTlv(0x01, "key") + MakeTlv(0x10, digest) +
                                                   MakeTlv(0x22, "signature"));
                }),
                "");
    constexpr char kChanged[] =
        "error: The SHA-256 in the image's TLV area is not that of the image, which was changed or "
        "damaged after it was signed;";
    ExpectImage(Change(image, 500, "x"), kChanged);
    ExpectImage(Change(image, 40, "x"), kChanged);
    ExpectImage(Change(image, image.size() - 1, QByteArray(1, static_cast<char>(~image.back()))),
                kChanged);
    for (bool const is_second_wrong : {true, false}) {
        ExpectImage(WithArea([=](QByteArray const& digest) {
                        auto const right = MakeTlv(0x10, digest);
                        auto const wrong = MakeTlv(0x10, QByteArray(32, 'x'));
                        return MakeTlvArea(0x6907, is_second_wrong ? right + wrong : wrong + right);
                    }),
                    kChanged);
    }
    ExpectImage(WithArea([](QByteArray const& digest) {
                    return MakeTlvArea(0x6907,
                                       MakeTlv(0x10, digest) + MakeTlv(0x12, QByteArray(64, 'x')));
                }),
                "error: The SHA-512 in the image's TLV area is not that of the image");
    ExpectImage(MakeMcubootParts(kFirmwareSize, {}, 0x04).Image(),
                "note: The image is encrypted, so its SHA-256 could not be compared; test it on "
                "a unit.");
}

TEST(McubootImage, MayHaveALongerDigest)
{
    auto const parts = MakeMcubootParts(kFirmwareSize);
    for (auto const& [type, algorithm, name] :
         {std::tuple{uint16_t{0x11}, QCryptographicHash::Sha384, "SHA-384"},
          std::tuple{uint16_t{0x12}, QCryptographicHash::Sha512, "SHA-512"}}) {
        auto const digest = QCryptographicHash::hash(parts.Hashed(), algorithm);
        auto const image = parts.Hashed() + MakeTlvArea(0x6907, MakeTlv(type, digest));
        ExpectImage(image, "");
        ExpectImage(Change(image, 500, "x"),
                    QByteArray("error: The ") + name + " in the image's TLV area is not that of");
    }
}

TEST(McubootImage, MayHaveProtectedTlvs)
{
    auto const dependency = MakeTlv(0x40, QByteArray(12, '\x01'));
    auto const area = MakeTlvArea(0x6908, dependency + dependency + MakeTlv(0x50, "count"));
    constexpr char kIncomplete[] =
        "error: The image's protected TLV area is missing or incomplete;";
    ExpectImage(MakeProtectedImage(area), "");
    ExpectImage(MakeProtectedImage(MakeTlvArea(0x6907, MakeTlv(0x50, "count"))), kIncomplete);
    ExpectImage(MakeProtectedImage(area + "more"), kIncomplete);
}

TEST(McubootImage, IsNotPaddedToItsSlot)
{
    auto const image = MakeGoodImage();
    auto const trailer =
        QByteArray("\x77\xC2\x95\xF3\x60\xD2\xEF\x7F\x35\x52\x50\x0F\x2C\xB6\x79\x80");
    constexpr char kPadded[] =
        "warning: 116 bytes of padding follow the image, up to the size of its slot, and the unit "
        "receives them as well; sign it without '--pad'.";
    ExpectImage(image + QByteArray(116, '\xFF'), kPadded);
    ExpectImage(image + QByteArray(100, '\xFF') + trailer, kPadded);
    ExpectImage(image + "rest",
                "error: 4 bytes that are not part of the image follow its TLV area");
}

TEST(McubootImage, HasTheVersionThatTheWindowShows)
{
    auto const version = [](QByteArray const& shown, QByteArray const& bytes) {
        auto parts = MakeMcubootParts(kFirmwareSize);
        parts.header.replace(20, bytes.size(), bytes);
        ImageBundle bundle(Unit::Mcuboot, parts.Image());
        bundle.Set("fw_version", shown);
        return bundle;
    };
    QByteArray const numbers("\x02\x0B\x2C\x01\x05\x00\x00\x00", 8);  // 2.11.300+5
    for (auto const* shown : {"2.11.300+5", "2.11.300", "v2.11.300", "V2.11.300"}) {
        EXPECT_FALSE(Finds(version(shown, numbers), "config.ini:13: warning: ")) << shown;
    }
    for (auto const* shown : {"1.0", "1.0.0"}) {
        EXPECT_TRUE(FindsNothing(version(shown, QByteArray("\x01\x00", 2)))) << shown;
    }
    for (auto const* shown : {"2.11", "2.11.301", "2.11.300+6", "3", "A1"}) {
        EXPECT_TRUE(Finds(version(shown, numbers),
                          (QByteArray("config.ini:13: warning: fw_version: The window shows '") +
                           shown + "', but the image's MCUboot header has the version 2.11.300+5;")
                              .constData()))
            << shown;
    }
}
