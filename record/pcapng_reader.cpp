#include "record/pcapng_reader.h"

#include <QFile>
#include <QFileInfo>
#include <QtEndian>
#include <cstring>
#include <limits>
#include <optional>

namespace record {
namespace {

constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;

// Takes numbers and bytes from the front of a block. Once something did not fit, nothing does, and
// numbers are 0.
class Cursor {
public:
    Cursor(QByteArrayView bytes, bool swapped) : rest_(bytes), swapped_(swapped) {}

    bool Failed() const { return failed_; }
    bool AtEnd() const { return rest_.isEmpty(); }

    template <typename Number>
    Number Take()
    {
        Number number = 0;
        auto const bytes = Take(static_cast<qsizetype>(sizeof number));
        if (bytes.size() == sizeof number) {
            std::memcpy(&number, bytes.data(), sizeof number);
        }
        return swapped_ ? qbswap(number) : number;
    }

    QByteArrayView Take(qsizetype size)
    {
        if (failed_ || size > rest_.size()) {
            failed_ = true;
            return {};
        }
        auto const taken = rest_.first(size);
        rest_ = rest_.sliced(size);
        return taken;
    }

    // With the bytes that fill it up to a multiple of four.
    QByteArrayView TakePadded(uint32_t size)
    {
        auto const taken = Take(static_cast<qsizetype>(size));
        Take((4 - static_cast<qsizetype>(size % 4)) % 4);
        return taken;
    }

private:
    QByteArrayView rest_;
    bool swapped_;
    bool failed_ = false;
};

// Calls use(code, value) for each option up to the end of the block. The list may be missing, and
// so may its end.
template <typename Use>
void ForEachOption(Cursor& body, Use const& use)
{
    while (!body.AtEnd() && !body.Failed()) {
        auto const code = body.Take<uint16_t>();
        auto const size = body.Take<uint16_t>();
        if (code == kEndOfOptions) {
            return;
        }
        auto const value = body.TakePadded(size);
        if (!body.Failed()) {
            use(code, value);
        }
    }
}

// The units of time of an interface, by its option if_tsresol: a power of ten, or of two if the
// highest bit is set.
struct TimeUnit {
    uint8_t resolution = kDefaultResolution;

    uint64_t ToNanoseconds(uint64_t units) const
    {
        auto const exponent = resolution & 0x7FU;
        return (resolution & 0x80U) != 0 ? FromPowerOfTwo(units, exponent)
                                         : FromPowerOfTen(units, exponent);
    }

private:
    static uint64_t FromPowerOfTen(uint64_t units, unsigned exponent)
    {
        for (; exponent < kNanoseconds; ++exponent) {
            if (units > std::numeric_limits<uint64_t>::max() / 10) {
                return std::numeric_limits<uint64_t>::max();
            }
            units *= 10;
        }
        for (; exponent > kNanoseconds && units != 0; --exponent) {
            units /= 10;
        }
        return units;
    }

    static uint64_t FromPowerOfTwo(uint64_t units, unsigned exponent)
    {
        // Finer units than 2^-32 s lose what no nanosecond needs.
        constexpr unsigned kFinest = 32;
        for (; exponent > kFinest && units != 0; --exponent) {
            units /= 2;
        }
        exponent = std::min(exponent, kFinest);
        auto const seconds = units >> exponent;
        auto const rest = units - (seconds << exponent);
        if (seconds >= std::numeric_limits<uint64_t>::max() / kNanosecondsPerSecond) {
            return std::numeric_limits<uint64_t>::max();
        }
        return seconds * kNanosecondsPerSecond + ((rest * kNanosecondsPerSecond) >> exponent);
    }
};

class Reader {
public:
    explicit Reader(QByteArrayView file) : file_(file) {}

    Recording Read()
    {
        if (file_.isEmpty()) {
            recording_.error = QStringLiteral("the file is empty");
        }
        while (recording_.error.isEmpty() && position_ < file_.size()) {
            ReadBlock();
        }
        return std::move(recording_);
    }

private:
    // `damage`: what is wrong with the block that begins at position_.
    void Stop(QLatin1String damage)
    {
        recording_.error = QStringLiteral("%1 at byte %2").arg(damage).arg(position_);
    }

    void ReadBlock()
    {
        auto const rest = file_.sliced(position_);
        if (rest.size() < kBlockHeaderSize + kBlockTrailerSize) {
            return StopAtStart(QLatin1String("the file ends within the block"));
        }
        auto const type = Cursor(rest, swapped_).Take<uint32_t>();
        if (type == kSectionHeaderBlock && !FindByteOrder(rest)) {
            return Stop(QLatin1String("there is no valid byte-order mark in the section"));
        }
        if (type != kSectionHeaderBlock && !in_section_) {
            return Stop(QLatin1String("there is no pcapng section"));
        }
        Cursor header(rest, swapped_);
        header.Take<uint32_t>();
        auto const length = header.Take<uint32_t>();
        if (length < kBlockHeaderSize + kBlockTrailerSize || length % 4 != 0) {
            return Stop(QLatin1String("there is no valid length in the block"));
        }
        if (length > rest.size()) {
            return Stop(QLatin1String("the file ends within the block"));
        }
        if (Cursor(rest.sliced(length - kBlockTrailerSize), swapped_).Take<uint32_t>() != length) {
            return Stop(QLatin1String("the two lengths differ in the block"));
        }
        Cursor body(rest.sliced(kBlockHeaderSize, length - kBlockHeaderSize - kBlockTrailerSize),
                    swapped_);
        ReadBody(type, body);
        position_ += length;
    }

    // Too short for any block: nothing but noise, if it is the start of the file.
    void StopAtStart(QLatin1String damage)
    {
        Stop(in_section_ ? damage : QLatin1String("there is no pcapng section"));
    }

    // `section` begins at the section header, whose byte order holds until the next one.
    bool FindByteOrder(QByteArrayView section)
    {
        Cursor cursor(section.sliced(kBlockHeaderSize), false);
        auto const magic = cursor.Take<uint32_t>();
        swapped_ = magic == qbswap(kByteOrderMagic);
        return swapped_ || magic == kByteOrderMagic;
    }

    void ReadBody(uint32_t type, Cursor& body)
    {
        switch (type) {
            case kSectionHeaderBlock:
                return ReadSection(body);
            case kInterfaceBlock:
                return ReadInterface(body);
            case kPacketBlock:
                return ReadPacket(body);
            default:
                return;
        }
    }

    void ReadSection(Cursor& body)
    {
        body.Take<uint32_t>();
        auto const version = body.Take<uint16_t>();
        body.Take<uint16_t>();
        body.Take<uint64_t>();
        Section section;
        ForEachOption(body, [&](uint16_t code, QByteArrayView value) {
            if (code == kHardwareOption) {
                section.hardware = QString::fromUtf8(value);
            } else if (code == kSystemOption) {
                section.system = QString::fromUtf8(value);
            } else if (code == kApplicationOption) {
                section.application = QString::fromUtf8(value);
            }
        });
        if (body.Failed()) {
            return Stop(QLatin1String("the block does not hold what it announces"));
        }
        if (version != kMajorVersion) {
            return Stop(QLatin1String("there is a version of pcapng that is not known"));
        }
        // Interfaces are numbered anew.
        in_section_ = true;
        first_interface_ = recording_.interfaces.size();
        units_.clear();
        if (recording_.section.application.isEmpty()) {
            recording_.section = section;
        }
    }

    void ReadInterface(Cursor& body)
    {
        RecordedInterface interface;
        TimeUnit unit;
        interface.link_type = body.Take<uint16_t>();
        body.Take<uint16_t>();
        body.Take<uint32_t>();
        ForEachOption(body, [&](uint16_t code, QByteArrayView value) {
            if (code == kNameOption) {
                interface.name = QString::fromUtf8(value);
            } else if (code == kDescriptionOption) {
                interface.description = QString::fromUtf8(value);
            } else if (code == kTimeResolutionOption && value.size() == 1) {
                unit.resolution = static_cast<uint8_t>(value.front());
            }
        });
        if (body.Failed()) {
            return Stop(QLatin1String("the block does not hold what it announces"));
        }
        recording_.interfaces.append(interface);
        units_.append(unit);
    }

    void ReadPacket(Cursor& body)
    {
        RecordedPacket packet;
        auto const number = body.Take<uint32_t>();
        auto const high = uint64_t{body.Take<uint32_t>()} << 32U;
        auto const time = high | body.Take<uint32_t>();
        auto const captured = body.Take<uint32_t>();
        body.Take<uint32_t>();  // its length before a capture cut it
        packet.bytes = body.TakePadded(captured).toByteArray();
        ForEachOption(body, [&](uint16_t code, QByteArrayView value) {
            if (code == kCommentOption) {
                packet.comments.append(QString::fromUtf8(value));
            } else if (code == kFlagsOption) {
                packet.direction = GetDirection(value);
            }
        });
        if (body.Failed()) {
            return Stop(QLatin1String("the block does not hold what it announces"));
        }
        if (number >= units_.size()) {
            return Stop(QLatin1String("there is a packet of an unknown interface"));
        }
        packet.interface = first_interface_ + number;
        packet.time = units_[number].ToNanoseconds(time);
        recording_.packets.append(packet);
    }

    Direction GetDirection(QByteArrayView flags) const
    {
        auto const bits = Cursor(flags, swapped_).Take<uint32_t>() & 3U;
        return bits == 3U ? Direction::kUnknown : static_cast<Direction>(bits);
    }

    QByteArrayView file_;
    qsizetype position_ = 0;
    Recording recording_;
    bool in_section_ = false;
    bool swapped_ = false;  // the section has the other byte order than this machine
    qsizetype first_interface_ = 0;
    QList<TimeUnit> units_;  // of the section's interfaces
};

}  // namespace

Recording ReadPcapng(QByteArrayView file)
{
    return Reader(file).Read();
}

Recording ReadPcapngFile(QString const& path)
{
    Recording failed;
    QFileInfo const info(path);
    QFile file(path);
    // A pipe in the file's place would block until somebody writes to it.
    if (!info.exists()) {
        failed.error = QStringLiteral("the file is not there");
    } else if (!info.isFile()) {
        failed.error = QStringLiteral("it is not a file");
    } else if (info.size() > kLargestRecording) {
        failed.error = QStringLiteral("the file is larger than %1 bytes").arg(kLargestRecording);
    } else if (!file.open(QIODevice::ReadOnly)) {
        failed.error = QStringLiteral("the file cannot be opened: %1").arg(file.errorString());
    } else {
        auto const content = file.readAll();
        if (file.error() == QFileDevice::NoError) {
            return ReadPcapng(content);
        }
        failed.error = QStringLiteral("the file cannot be read: %1").arg(file.errorString());
    }
    return failed;
}

}  // namespace record
