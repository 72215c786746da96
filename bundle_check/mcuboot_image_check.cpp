// An image as it was signed for MCUboot: header, firmware, TLV area. All numbers are little-endian;
// the layout is in MCUboot's document "Bootloader", sections "Image format" and "TLVs".
#include <QCryptographicHash>
#include <QMultiHash>
#include <QRegularExpression>
#include <algorithm>
#include <iterator>
#include <optional>

#include "bundle_check/file_kind.h"
#include "bundle_check/image_contents.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

// Offsets in the header, in bytes.
constexpr qsizetype kHeaderSizeAt = 8;
constexpr qsizetype kProtectedSizeAt = 10;
constexpr qsizetype kFirmwareSizeAt = 12;
constexpr qsizetype kFlagsAt = 16;
constexpr qsizetype kMajorAt = 20;
constexpr qsizetype kMinorAt = 21;
constexpr qsizetype kRevisionAt = 22;
constexpr qsizetype kBuildAt = 24;
constexpr qsizetype kShortestHeader = 32;
// Encrypted with AES-128 or AES-256. The digest is that of the plain image, which is not at hand.
constexpr uint32_t kEncryptedFlags = 0x04 | 0x08;

// An area begins with its magic number and its size, this beginning included; each entry with its
// type and the length of its value.
constexpr uint16_t kProtectedMagic = 0x6908;
constexpr uint16_t kTlvMagic = 0x6907;
constexpr qsizetype kTlvHead = 4;

struct Hash {
    uint16_t type;  // of its TLV
    QCryptographicHash::Algorithm algorithm;
    char16_t const* name;
};

// An image has at least one of them, as its signature needs it.
constexpr Hash kHashes[] = {
    {0x10, QCryptographicHash::Sha256, u"SHA-256"},
    {0x11, QCryptographicHash::Sha384, u"SHA-384"},
    {0x12, QCryptographicHash::Sha512, u"SHA-512"},
};

// What an image that is padded to the size of its slot ends with.
constexpr char kTrailerMagic[] = "\x77\xC2\x95\xF3\x60\xD2\xEF\x7F\x35\x52\x50\x0F\x2C\xB6\x79\x80";

QByteArray GetMagic()
{
    return {kMcubootMagic, sizeof(kMcubootMagic) - 1};
}

struct McubootHeader {
    qsizetype size;
    qsizetype protected_size;
    qint64 firmware_size;
    uint32_t flags;

    qint64 TlvBegin() const { return size + firmware_size; }
    // The digest covers the protected TLVs.
    qint64 HashedSize() const { return TlvBegin() + protected_size; }
};

McubootHeader ReadHeader(QByteArray const& bytes)
{
    return {ReadLittleEndian<uint16_t>(bytes, kHeaderSizeAt),
            ReadLittleEndian<uint16_t>(bytes, kProtectedSizeAt),
            ReadLittleEndian<uint32_t>(bytes, kFirmwareSizeAt),
            ReadLittleEndian<uint32_t>(bytes, kFlagsAt)};
}

class McubootCheck {
public:
    McubootCheck(Config const& config, QByteArray const& bytes, Findings& findings)
        : config_(config),
          bytes_(bytes),
          findings_(findings),
          place_(config.PlaceOf(config_keys::kFirmwareFilename))
    {}

    // False if it is no image for MCUboot.
    bool Run()
    {
        if (!bytes_.startsWith(GetMagic())) {
            ReportMissingHeader();
            return false;
        }
        if (bytes_.size() < kShortestHeader) {
            Fail(u"The image is cut off in its MCUboot header"_s);
            return false;
        }
        header_ = ReadHeader(bytes_);
        bool const has_firmware = CheckHeader();
        if (has_firmware && !IsEncrypted() && !CheckFirmware()) {
            return false;
        }
        auto const end = has_firmware ? CheckTlvs() : std::nullopt;
        if (end) {
            CheckRest(*end);
        }
        CheckVersion();
        return true;
    }

private:
    void Fail(QString const& text)
    {
        findings_.Fail(place_, text + u"; sign the raw image again with 'imgtool sign'."_s);
    }

    bool IsEncrypted() const { return (header_.flags & kEncryptedFlags) != 0; }

    void ReportMissingHeader()
    {
        if (CheckBlank(place_, u"the image"_s, bytes_, findings_)) {
            return;
        }
        if (auto const at = bytes_.indexOf(GetMagic()); at > 0) {
            findings_.Fail(
                place_,
                u"The MCUboot header is at byte %1 of the image and not at its beginning, as in a "
                "file that is merged with the bootloader; use the signed image of the firmware "
                "alone."_s.arg(at));
        } else {
            findings_.Fail(place_,
                           u"The image has no MCUboot header, and MCUboot does not start such an "
                           "image; sign the raw image with 'imgtool sign'."_s);
        }
    }

    // False when the places of the other parts are not known.
    bool CheckHeader()
    {
        if (header_.size < kShortestHeader) {
            Fail(u"The MCUboot header gives its own size as %1 bytes, but it has at least %2"_s.arg(
                QString::number(header_.size), QString::number(kShortestHeader)));
            return false;
        }
        if (header_.firmware_size == 0 || header_.TlvBegin() + kTlvHead > bytes_.size()) {
            Fail(
                u"The MCUboot header announces %1 bytes of header, %2 of firmware and a TLV area, "
                "but the file has %3: it is cut off or damaged"_s.arg(
                    QString::number(header_.size), QString::number(header_.firmware_size),
                    QString::number(bytes_.size())));
            return false;
        }
        return true;
    }

    // True if what was signed may be a raw image. imgtool signs any file.
    bool CheckFirmware()
    {
        auto const firmware = bytes_.mid(header_.size, header_.firmware_size);
        if (CheckBlank(place_, u"the firmware in the signed image"_s, firmware, findings_)) {
            return false;
        }
        if (firmware.startsWith(GetMagic())) {
            findings_.Fail(place_,
                           u"The firmware in the signed image is an image for MCUboot, so it was "
                           "signed twice; sign the raw image, made with 'objcopy -O binary "
                           "FILE.elf FILE.bin', with 'imgtool sign'."_s);
            return false;
        }
        auto const kind = FindForeignKind(firmware.left(kKindHead), firmware.right(kKindTail));
        if (kind) {
            findings_.Fail(place_,
                           u"The firmware in the signed image is %1; %2, and sign that with "
                           "'imgtool sign'."_s.arg(kind->name, kind->cure));
        }
        return !kind;
    }

    // Where the area at `begin` ends; nothing if there is no whole one with this magic number.
    std::optional<qint64> FindAreaEnd(qint64 begin, uint16_t magic) const
    {
        if (begin + kTlvHead > bytes_.size() ||
            ReadLittleEndian<uint16_t>(bytes_, begin) != magic) {
            return std::nullopt;
        }
        auto const end = begin + ReadLittleEndian<uint16_t>(bytes_, begin + 2);
        bool const is_whole = end >= begin + kTlvHead && end <= bytes_.size();
        return is_whole ? std::optional(end) : std::nullopt;
    }

    // The values of each type; nothing if the entries do not fill the area.
    std::optional<QMultiHash<uint16_t, QByteArray>> ReadTlvs(qint64 begin, qint64 end) const
    {
        QMultiHash<uint16_t, QByteArray> values;
        auto at = begin + kTlvHead;
        while (at + kTlvHead <= end) {
            auto const type = ReadLittleEndian<uint16_t>(bytes_, at);
            auto const length = ReadLittleEndian<uint16_t>(bytes_, at + 2);
            auto const value = at + kTlvHead;
            values.insert(type, bytes_.mid(value, length));
            at = value + length;
        }
        return at == end ? std::optional(values) : std::nullopt;
    }

    // Where the last area ends.
    std::optional<qint64> CheckTlvs()
    {
        if (header_.protected_size > 0 &&
            FindAreaEnd(header_.TlvBegin(), kProtectedMagic) != header_.HashedSize()) {
            Fail(u"The image's protected TLV area is missing or incomplete"_s);
            return std::nullopt;
        }
        auto const begin = header_.HashedSize();
        auto const end = FindAreaEnd(begin, kTlvMagic);
        auto const tlvs = end ? ReadTlvs(begin, *end) : std::nullopt;
        if (!tlvs) {
            Fail(u"The image's TLV area is missing or incomplete"_s);
            return std::nullopt;
        }
        CheckDigests(*tlvs);
        return end;
    }

    void CheckDigests(QMultiHash<uint16_t, QByteArray> const& tlvs)
    {
        bool has_digest = false;
        for (auto const& hash : kHashes) {
            auto const digests = tlvs.values(hash.type);
            if (!digests.isEmpty()) {
                has_digest = true;
                CompareDigests(hash, digests);
            }
        }
        if (!has_digest) {
            Fail(u"The image's TLV area has no SHA-256, SHA-384 or SHA-512"_s);
        }
    }

    void CompareDigests(Hash const& hash, QList<QByteArray> const& digests)
    {
        auto const name = QString::fromUtf16(hash.name);
        if (IsEncrypted()) {
            findings_.Note(
                place_,
                u"The image is encrypted, so its %1 could not be compared; test it on a unit."_s
                    .arg(name));
            return;
        }
        auto const computed =
            QCryptographicHash::hash(bytes_.first(header_.HashedSize()), hash.algorithm);
        if (digests.count(computed) != digests.size()) {
            Fail(
                u"The %1 in the image's TLV area is not that of the image, which was changed or "
                "damaged after it was signed"_s.arg(name));
        }
    }

    // Nothing belongs behind the last area.
    void CheckRest(qint64 end)
    {
        auto const rest = bytes_.sliced(end);
        if (rest.isEmpty()) {
            return;
        }
        auto const trailer = QByteArray::fromRawData(kTrailerMagic, sizeof(kTrailerMagic) - 1);
        auto const count = QString::number(rest.size());
        if (rest.contains(GetMagic())) {
            findings_.Fail(
                place_,
                u"Another MCUboot header is in the %1 bytes after the image, as in a merged "
                "file; use the signed image of the firmware alone."_s.arg(count));
        } else if (rest.endsWith(trailer) || rest.count('\xFF') == rest.size()) {
            findings_.Warn(place_,
                           u"%1 bytes of padding follow the image, up to the size of its slot, and "
                           "the unit receives them as well; sign it without '--pad'."_s.arg(count));
        } else {
            Fail(u"%1 bytes that are not part of the image follow its TLV area"_s.arg(count));
        }
    }

    void CheckVersion()
    {
        auto const& key = config_keys::kFwVersion;
        auto const shown = config_.Value(key).toString().trimmed();
        auto const build = ReadLittleEndian<uint32_t>(bytes_, kBuildAt);
        auto const revision = ReadLittleEndian<uint16_t>(bytes_, kRevisionAt);
        auto const minor = u"%1.%2"_s.arg(static_cast<uint8_t>(bytes_[kMajorAt]))
                               .arg(static_cast<uint8_t>(bytes_[kMinorAt]));
        auto const version = u"%1.%2"_s.arg(minor).arg(revision);
        auto const full = build == 0 ? version : u"%1+%2"_s.arg(version).arg(build);
        static QRegularExpression const prefix(u"^[vV]"_s);
        auto const number = QString(shown).remove(prefix);
        bool const is_short = revision == 0 && build == 0 && number == minor;
        if (!shown.isEmpty() && number != full && number != version && !is_short) {
            findings_.Warn(config_.PlaceOf(key),
                           u"The window shows %1, but the image's MCUboot header has the version "
                           "%2; correct the one that is wrong."_s.arg(Quote(shown), full));
        }
    }

    Config const& config_;
    QByteArray const& bytes_;
    Findings& findings_;
    Place place_;
    McubootHeader header_{};
};

}  // namespace

bool CheckMcubootImage(Config const& config, QByteArray const& image, Findings& findings)
{
    return McubootCheck(config, image, findings).Run();
}

}  // namespace bundle_check
