#include "bundle_check/png_file.h"

#include <QByteArrayView>
#include <QtEndian>
#include <cstdint>

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr QByteArrayView kSignature("\x89PNG\r\n\x1A\n");
// A part ("chunk") has its length, its name, its data and its check value, of four bytes each but
// for the data.
constexpr qsizetype kField = 4;

uint32_t ReadField(QByteArrayView bytes, qsizetype at)
{
    return qFromBigEndian<uint32_t>(bytes.data() + at);
}

// The CRC-32 of ISO 3309, over a part's name and data.
uint32_t ComputeCheckValue(QByteArrayView bytes)
{
    uint32_t value = 0xFFFFFFFF;
    for (auto const byte : bytes) {
        value ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320 : 0);
        }
    }
    return ~value;
}

}  // namespace

bool IsPng(QByteArray const& file)
{
    return file.startsWith(kSignature);
}

QString FindPngFault(QByteArray const& file)
{
    auto rest = QByteArrayView(file).sliced(kSignature.size());
    QByteArrayView expected("IHDR");
    while (rest.size() >= 3 * kField && ReadField(rest, 0) <= rest.size() - 3 * kField) {
        auto const length = static_cast<qsizetype>(ReadField(rest, 0));
        auto const checked = rest.sliced(kField, kField + length);
        auto const name = checked.first(kField);
        if (!expected.isEmpty() && name != expected) {
            return u"it has no header"_s;
        }
        if (ComputeCheckValue(checked) != ReadField(rest, 2 * kField + length)) {
            return u"the check value of its part '%1' is wrong"_s.arg(QLatin1StringView(name));
        }
        if (name == QByteArrayView("IEND")) {
            return {};
        }
        expected = {};
        rest = rest.sliced(3 * kField + length);
    }
    return u"it is cut off"_s;
}

}  // namespace bundle_check
