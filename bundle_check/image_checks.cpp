// Checks the firmware image: the file and its contents.
#include <QFileInfo>
#include <algorithm>
#include <limits>

#include "bundle_check/checks.h"
#include "bundle_check/chips.h"
#include "bundle_check/file_kind.h"
#include "bundle_check/files.h"
#include "bundle_check/image_contents.h"
#include "config/bundle_paths.h"
#include "modules/stm32_updater/limits.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr qint64 kWord = stm32_updater::kWordSize;

// The other transports send an image of any size. This one is certainly cut off.
constexpr qint64 kShortestOtherImage = 8;

qint64 GetShortestImage(targetInterfaceType type)
{
    return type == TargetUart ? qint64{stm32_updater::kSmallestImageFile} : kShortestOtherImage;
}

void CheckLocation(Place const& place, QDir const& resources, QString const& path,
                   Findings& findings)
{
    auto const inside = QDir::cleanPath(resources.absolutePath()) + QLatin1Char('/');
    if (!QDir::cleanPath(QFileInfo(path).absoluteFilePath()).startsWith(inside)) {
        findings.Add(
            findings.InPackage(), place,
            u"The firmware file %1 is outside the Resources folder, so a customer's computer does "
            "not have it; move it there."_s.arg(Quote(resources.relativeFilePath(path))));
    } else {
        CheckLink(place, resources, path, findings);
    }
}

// True if the file may be a raw image.
bool CheckKind(Config const& config, Place const& place, QByteArray const& head,
               QByteArray const& tail, Findings& findings)
{
    auto const kind = FindForeignKind(head, tail);
    if (kind) {
        auto const signing = config.Type() == TargetMcubootSerial
                                 ? u", and sign it with 'imgtool sign' if it is not signed yet"_s
                                 : QString();
        findings.Fail(place,
                      u"The firmware file is %1, and the program writes every byte of it as it is; "
                      "%2%3."_s.arg(kind->name, kind->cure, signing));
    } else if (config.Type() != TargetMcubootSerial && head.startsWith(kMcubootMagic)) {
        findings.Fail(
            place,
            u"The firmware file is an image for MCUboot, which begins with a header and "
            "cannot be started over this interface; use the raw image, made with "
            "'objcopy -O binary FILE.elf FILE.bin', or write %1=%2."_s.arg(
                QString(config_keys::kInterface.name), GetInterfaceName(TargetMcubootSerial)));
        return false;
    }
    return !kind;
}

// The program replaces the last word over UART.
void CheckLastWord(Config const& config, Place const& place, QByteArray const& bytes,
                   Findings& findings)
{
    auto const replaced = bytes.last(kWord);
    bool const is_blank = replaced == QByteArray(kWord, '\xFF') || replaced == QByteArray(kWord, 0);
    if (config.Type() == TargetUart && !is_blank) {
        findings.Note(
            place,
            u"The last four bytes of the image, %1, are lost: the program writes %2 00 00 00 "
            "instead. Have the linker script keep the last word free."_s
                .arg(QString::fromLatin1(replaced.toHex(' ')))
                .arg(stm32_updater::kMcuId, 2, 16, QLatin1Char('0')));
    }
}

// True if the bytes are an image for the transport.
bool CheckContents(Config const& config, Place const& place, QByteArray const& image,
                   Findings& findings)
{
    if (config.Type() == TargetMcubootSerial) {
        return CheckMcubootImage(config, image, findings);
    }
    bool const is_image = CheckVectorTable(config, image, findings);
    if (is_image) {
        CheckLastWord(config, place, image, findings);
    }
    return is_image;
}

// Whether the flash takes such a size is checked in CheckImageInFlash().
void CheckAlignment(Config const& config, Place const& place, qint64 size, Findings& findings)
{
    if (size % kWord != 0 && config.Type() == TargetUart) {
        findings.Warn(
            place,
            u"The image has %1 bytes, which is not a multiple of %2. The program adds zero bytes "
            "and then replaces the last four, so the image loses %3 of its bytes. Fill it up to a "
            "multiple of %4, and leave its last four bytes free."_s.arg(
                QString::number(size), QString::number(kWord), QString::number(size % kWord),
                QString::number(stm32_updater::kTrailerSize)));
    }
}

// As far as is known, no unit with MCUboot holds a larger image than the supported chips do.
void CheckMcubootSize(Place const& place, qint64 size, qint64 slot_size, Findings& findings)
{
    auto const chips = GetChips();
    auto const largest = std::ranges::max(chips, {}, &Chip::FlashSize).FlashSize();
    if (size > std::numeric_limits<int32_t>::max()) {
        findings.Fail(
            place,
            u"The image has %1 bytes, more than MCUboot's serial recovery can handle; make the "
            "firmware smaller."_s.arg(size));
    } else if (slot_size > 0 && size > slot_size) {
        findings.Fail(place,
                      u"The image has %1 bytes, %2 more than the slot of %3 bytes holds; make the "
                      "firmware smaller, or correct the slot's size (--slot-size, or "
                      "FW_PRODUCT_SLOT_SIZE in product.cmake)."_s.arg(size)
                          .arg(size - slot_size)
                          .arg(slot_size));
    } else if (slot_size == 0 && static_cast<uint64_t>(size) > largest) {
        findings.Warn(place,
                      u"The image has %1 bytes, more than the flash of any supported chip; give "
                      "the size of the unit's slot with --slot-size."_s.arg(size));
    }
}

// The file's size, if it is an image that can be read and is long enough.
std::optional<qint64> CheckFile(Config const& config, Place const& place, QDir const& resources,
                                Findings& findings)
{
    auto const path = GetFirmwarePath(resources, config.Settings());
    auto const name = Quote(resources.relativeFilePath(path));
    auto const fault = DescribeFileFault(path);
    auto const size = QFileInfo(path).size();
    if (!fault.isEmpty() || size == 0) {
        findings.Fail(
            place,
            u"The firmware file %1 %2; put the image into the Resources folder, or correct "
            "%3."_s.arg(name, fault.isEmpty() ? u"is empty"_s : fault,
                        QString(config_keys::kFirmwareFilename.name)));
        return std::nullopt;
    }
    // Far larger ones than any chip holds are reported by their kind and size alone.
    constexpr qint64 kMostBytes = 32 * 1024 * 1024;
    auto const bytes = ReadHead(path, kMostBytes);
    auto const tail = ReadTail(path, kKindTail);
    if (!bytes || bytes->size() != std::min(size, kMostBytes) || !tail) {
        findings.Fail(place, u"The firmware file %1 cannot be read; copy it again."_s.arg(name));
        return std::nullopt;
    }
    if (!CheckKind(config, place, bytes->first(std::min(kKindHead, bytes->size())), *tail,
                   findings)) {
        return std::nullopt;
    }
    if (auto const shortest = GetShortestImage(config.Type()); size < shortest) {
        findings.Fail(
            place,
            u"The firmware file has %1 bytes, but an image has at least %2; is it the right file?"_s
                .arg(QString::number(size), QString::number(shortest)));
        return std::nullopt;
    }
    bool const is_image = size > kMostBytes || CheckContents(config, place, *bytes, findings);
    return is_image ? std::optional(size) : std::nullopt;
}

}  // namespace

std::optional<qint64> CheckImage(Config const& config, QDir const& resources, qint64 slot_size,
                                 Findings& findings)
{
    auto const path = GetFirmwarePath(resources, config.Settings());
    if (path == resources.filePath(QString())) {
        return std::nullopt;  // no file is named, which has been reported
    }
    auto const place = config.PlaceOf(config_keys::kFirmwareFilename);
    auto const name = config.Value(config_keys::kFirmwareFilename).toString();
    if (QDir::isAbsolutePath(name)) {
        findings.Fail(place,
                      u"%1 is an absolute path, which a customer's computer does not have; write "
                      "only the file name."_s.arg(Quote(name)));
        return std::nullopt;
    }
    CheckLocation(place, resources, path, findings);
    auto const size = CheckFile(config, place, resources, findings);
    if (!size) {
        return std::nullopt;
    }
    CheckAlignment(config, place, *size, findings);
    if (config.Type() == TargetMcubootSerial) {
        CheckMcubootSize(place, *size, slot_size, findings);
    } else {
        CheckImageInFlash(config, static_cast<uint64_t>(*size), findings);
    }
    return size;
}

}  // namespace bundle_check
