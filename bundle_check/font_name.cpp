#include "bundle_check/font_name.h"

#include <QHash>
#include <QStringDecoder>
#include <QtEndian>

namespace bundle_check {

namespace {

// Numbers in the OpenType format's name table.
constexpr int kMacintosh = 1;
constexpr int kFamily = 1;
constexpr int kStyle = 2;
constexpr int kTypographicFamily = 16;
constexpr int kTypographicStyle = 17;

template <typename Number>
Number Read(QByteArray const& bytes, qsizetype offset)
{
    constexpr auto kSize = static_cast<qsizetype>(sizeof(Number));
    if (offset < 0 || offset > bytes.size() - kSize) {
        return 0;
    }
    return qFromBigEndian<Number>(bytes.constData() + offset);
}

// The bytes of the table, or none.
QByteArray FindTable(QByteArray const& bytes, QByteArray const& tag)
{
    constexpr qsizetype kHeader = 12;
    constexpr qsizetype kRecord = 16;
    auto const signature = bytes.left(4);
    if (signature != "OTTO" && signature != QByteArray("\0\1\0\0", 4) && signature != "true") {
        return {};
    }
    auto const count = Read<uint16_t>(bytes, 4);
    for (qsizetype i = 0; i < count; ++i) {
        auto const record = kHeader + i * kRecord;
        if (bytes.mid(record, tag.size()) == tag) {
            return bytes.mid(Read<uint32_t>(bytes, record + 8), Read<uint32_t>(bytes, record + 12));
        }
    }
    return {};
}

QString Decode(QByteArray const& text, int platform)
{
    if (platform == kMacintosh) {
        return QString::fromLatin1(text);  // the names that are looked for are ASCII
    }
    return QStringDecoder(QStringDecoder::Utf16BE)(text);
}

}  // namespace

std::optional<FontName> ReadFontName(QByteArray const& bytes)
{
    constexpr qsizetype kHeader = 6;
    constexpr qsizetype kRecord = 12;
    auto const table = FindTable(bytes, "name");
    auto const strings = Read<uint16_t>(table, 4);
    QHash<int, QString> names;
    auto const count = Read<uint16_t>(table, 2);
    for (qsizetype i = 0; i < count; ++i) {
        auto const record = kHeader + i * kRecord;
        auto const text = table.mid(strings + Read<uint16_t>(table, record + 10),
                                    Read<uint16_t>(table, record + 8));
        if (!text.isEmpty()) {
            names[Read<uint16_t>(table, record + 6)] = Decode(text, Read<uint16_t>(table, record));
        }
    }
    if (!names.contains(kFamily) && !names.contains(kTypographicFamily)) {
        return std::nullopt;
    }
    return FontName{names.value(kTypographicFamily, names.value(kFamily)),
                    names.value(kTypographicStyle, names.value(kStyle))};
}

}  // namespace bundle_check
