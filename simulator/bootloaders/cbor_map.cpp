#include "simulator/bootloaders/cbor_map.h"

#include <QCborStreamReader>
#include <QCborStreamWriter>

namespace simulator {
namespace {

std::optional<CborEntry> ReadEntry(QCborStreamReader& reader)
{
    auto const key = QCborValue::fromCbor(reader);
    if (!key.isString() || !reader.isValid()) {
        return std::nullopt;
    }
    auto const value = QCborValue::fromCbor(reader);
    bool const known = value.isByteArray() || (value.isInteger() && value.toInteger() >= 0);
    return known ? std::optional(CborEntry{key.toString(), value}) : std::nullopt;
}

}  // namespace

std::optional<std::vector<CborEntry>> ReadCborMap(QByteArray const& bytes)
{
    QCborStreamReader reader(bytes);
    if (!reader.isMap() || !reader.enterContainer()) {
        return std::nullopt;
    }
    std::vector<CborEntry> entries;
    while (reader.hasNext()) {
        auto const entry = ReadEntry(reader);
        if (!entry) {
            return std::nullopt;
        }
        entries.push_back(*entry);
    }
    bool const whole = reader.leaveContainer() && reader.currentOffset() == bytes.size();
    return whole ? std::optional(entries) : std::nullopt;
}

QByteArray EncodeCborMap(QCborMap const& map, bool definite)
{
    QByteArray bytes;
    QCborStreamWriter writer(&bytes);
    if (definite) {
        writer.startMap(static_cast<quint64>(map.size()));
    } else {
        writer.startMap();
    }
    for (auto const& [key, value] : map) {
        key.toCbor(writer);
        value.toCbor(writer);
    }
    writer.endMap();
    return bytes;
}

}  // namespace simulator
