#include "bundle_check/font_tables.h"

#include <QStringList>
#include <QtEndian>
#include <algorithm>
#include <cstdint>

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

// Sizes and offsets in bytes. All numbers are big-endian.
constexpr qsizetype kFontHead = 12;
constexpr qsizetype kCountAt = 4;
constexpr qsizetype kRecordSize = 16;
constexpr qsizetype kChecksumAt = 4;
constexpr qsizetype kOffsetAt = 8;
constexpr qsizetype kLengthAt = 12;
constexpr qsizetype kAdjustmentAt = 8;  // in the table "head"; counts as 0

// Without these no text can be drawn.
constexpr char const* kNeeded[] = {"cmap", "head", "hhea", "hmtx", "maxp", "name"};
// The letters themselves; one of these is enough.
constexpr char const* kOutlines[] = {"CFF ", "CFF2", "glyf"};

template <typename Number>
Number ReadBigEndian(QByteArray const& bytes, qsizetype offset)
{
    return qFromBigEndian<Number>(bytes.constData() + offset);
}

// The sum of its words; the last one is filled with zero bytes.
uint32_t SumWords(QByteArray table)
{
    while (table.size() % 4 != 0) {
        table.append('\0');
    }
    uint32_t sum = 0;
    for (qsizetype at = 0; at < table.size(); at += 4) {
        sum += ReadBigEndian<uint32_t>(table, at);
    }
    return sum;
}

QString DescribeFault(QByteArray const& font, QByteArray const& name, qsizetype record)
{
    auto const tag = QString::fromLatin1(name);
    auto const offset = qint64{ReadBigEndian<uint32_t>(font, record + kOffsetAt)};
    auto const length = qint64{ReadBigEndian<uint32_t>(font, record + kLengthAt)};
    if (offset + length > font.size()) {
        return u"its table '%1' reaches beyond the end of the file"_s.arg(tag);
    }
    auto table = font.sliced(offset, length);
    if (name == "head" && table.size() >= kAdjustmentAt + 4) {
        table.replace(kAdjustmentAt, 4, QByteArray(4, '\0'));
    }
    return SumWords(table) == ReadBigEndian<uint32_t>(font, record + kChecksumAt)
               ? QString()
               : u"the checksum of its table '%1' is wrong"_s.arg(tag);
}

}  // namespace

QString DescribeTableFault(QByteArray const& font)
{
    auto const count = font.size() < kFontHead ? 0 : ReadBigEndian<uint16_t>(font, kCountAt);
    if (font.size() < kFontHead + count * kRecordSize) {
        return u"its list of tables is cut off"_s;
    }
    QList<QByteArray> names;
    for (int i = 0; i < count; ++i) {
        auto const record = kFontHead + i * kRecordSize;
        auto const name = font.sliced(record, 4);
        if (auto const fault = DescribeFault(font, name, record); !fault.isEmpty()) {
            return fault;
        }
        names.append(name);
    }
    for (auto const* name : kNeeded) {
        if (!names.contains(name)) {
            return u"it has no table '%1'"_s.arg(QString::fromLatin1(name));
        }
    }
    bool const has_outlines =
        std::ranges::any_of(kOutlines, [&](char const* name) { return names.contains(name); });
    return has_outlines ? QString() : u"it has no table 'CFF ' or 'glyf' with letters"_s;
}

}  // namespace bundle_check
