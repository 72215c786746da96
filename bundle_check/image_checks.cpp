// Checks the firmware image: the file and its contents.
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <limits>

#include "bundle_check/checks.h"
#include "bundle_check/chips.h"
#include "bundle_check/files.h"
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

// The file's beginning and end; both the whole file when it is short.
struct Ends {
    QByteArray head;
    QByteArray tail;
};

void CheckLocation(Place const& place, QDir const& resources, QString const& path,
                   Findings& findings)
{
    auto const inside = QDir::cleanPath(resources.absolutePath()) + QLatin1Char('/');
    if (!QDir::cleanPath(QFileInfo(path).absoluteFilePath()).startsWith(inside)) {
        findings.Warn(
            place,
            u"The firmware file %1 is outside the Resources folder, so a customer's computer does "
            "not have it; move it there."_s.arg(Quote(resources.relativeFilePath(path))));
    } else {
        CheckLink(place, resources, path, findings);
    }
}

// The format of an image that is not raw; the program would write every byte of it as it is.
QString DescribeFormat(Ends const& ends)
{
    if (ends.head.startsWith(kElfHead)) {
        return u"an ELF file"_s;
    }
    if (ends.head.startsWith("PK\x03\x04")) {
        return u"a ZIP archive"_s;
    }
    if (ends.head.startsWith("DfuSe")) {
        return u"a DfuSe file"_s;
    }
    auto const is_record = [&](char mark) {
        auto const digits = ends.head.mid(1, 8);
        return ends.head.startsWith(mark) && digits.size() == 8 &&
               QByteArray::fromHex(digits).size() == 4;
    };
    if (is_record(':')) {
        return u"an Intel HEX file"_s;
    }
    if (is_record('S')) {
        return u"an S-record file"_s;
    }
    return {};
}

void CheckContent(Config const& config, Place const& place, Ends const& ends, Findings& findings)
{
    constexpr qsizetype kSignatureFromEnd = 8;
    auto const format = DescribeFormat(ends);
    if (!format.isEmpty()) {
        findings.Fail(place,
                      u"The firmware file is %1, and the program writes every byte of it as it is; "
                      "use the raw binary image."_s.arg(format));
    }
    if (config.Type() != TargetUsb && ends.tail.right(kSignatureFromEnd).startsWith("UFD")) {
        findings.Warn(
            place,
            u"The firmware file ends with a DFU suffix, which only dfu-util removes: over "
            "this interface it is written to the unit."_s);
    }
    auto const replaced = ends.tail.last(kWord);
    bool const is_blank = replaced == QByteArray(kWord, '\xFF') || replaced == QByteArray(kWord, 0);
    if (config.Type() == TargetUart && !is_blank) {
        findings.Note(
            place,
            u"The last four bytes of the image, %1, are not written; %2 00 00 00 replaces "
            "them."_s.arg(QString::fromLatin1(replaced.toHex(' ')))
                .arg(stm32_updater::kMcuId, 2, 16, QLatin1Char('0')));
    }
}

// Whether the flash takes such a size is checked in CheckImageInFlash().
void CheckAlignment(Config const& config, Place const& place, qint64 size, Findings& findings)
{
    if (size % kWord != 0 && config.Type() == TargetUart) {
        findings.Warn(
            place,
            u"The image has %1 bytes, which is not a multiple of %2: the program pads it with zero "
            "bytes and then replaces the last four; bytes of the image that are lost: %3."_s.arg(
                QString::number(size), QString::number(kWord), QString::number(size % kWord)));
    }
}

// As far as is known, no unit with MCUboot holds a larger image than the supported chips do.
void CheckMcubootSize(Place const& place, qint64 size, Findings& findings)
{
    auto const chips = GetChips();
    auto const largest = std::ranges::max(chips, {}, &Chip::FlashSize).FlashSize();
    if (size > std::numeric_limits<int32_t>::max()) {
        findings.Fail(
            place,
            u"The image has %1 bytes, more than MCUboot's serial recovery can count."_s.arg(size));
    } else if (static_cast<uint64_t>(size) > largest) {
        findings.Warn(
            place,
            u"The image has %1 bytes, more than the flash of any supported chip."_s.arg(size));
    }
}

std::optional<Ends> ReadEnds(QString const& path, qint64 size)
{
    constexpr qint64 kEnd = 16;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    Ends ends;
    ends.head = file.read(kEnd);
    bool const moved = file.seek(std::max(qint64{0}, size - kEnd));
    ends.tail = file.read(kEnd);
    bool const complete = moved && ends.tail.size() == std::min(kEnd, size);
    return complete ? std::optional(ends) : std::nullopt;
}

// The file's size, if there is a file that can be read and is long enough.
std::optional<qint64> CheckFile(Config const& config, Place const& place, QDir const& resources,
                                Findings& findings)
{
    auto const path = GetFirmwarePath(resources, config.Settings());
    auto const name = Quote(resources.relativeFilePath(path));
    auto const fault = DescribeFileFault(path);
    if (!fault.isEmpty()) {
        findings.Fail(place, u"The firmware file %1 %2."_s.arg(name, fault));
        return std::nullopt;
    }
    auto const size = QFileInfo(path).size();
    auto const shortest = GetShortestImage(config.Type());
    if (size < shortest) {
        findings.Fail(
            place,
            size == 0
                ? u"The firmware file is empty."_s
                : u"The firmware file has %1 bytes; an image has at least %2."_s.arg(size).arg(
                      shortest));
        return std::nullopt;
    }
    auto const ends = ReadEnds(path, size);
    if (!ends) {
        findings.Fail(place, u"The firmware file %1 cannot be read."_s.arg(name));
        return std::nullopt;
    }
    CheckContent(config, place, *ends, findings);
    return size;
}

}  // namespace

std::optional<qint64> CheckImage(Config const& config, QDir const& resources, Findings& findings)
{
    auto const path = GetFirmwarePath(resources, config.Settings());
    if (path == resources.filePath(QString())) {
        return std::nullopt;  // no file is named, which has been reported
    }
    auto const place = config.PlaceOf(config_keys::kFirmwareFilename);
    CheckLocation(place, resources, path, findings);
    auto const size = CheckFile(config, place, resources, findings);
    if (!size) {
        return std::nullopt;
    }
    CheckAlignment(config, place, *size, findings);
    if (config.Type() == TargetMcubootSerial) {
        CheckMcubootSize(place, *size, findings);
    } else {
        CheckImageInFlash(config, static_cast<uint64_t>(*size), findings);
    }
    return size;
}

}  // namespace bundle_check
