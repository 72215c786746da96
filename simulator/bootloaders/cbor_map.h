// The maps (CBOR, RFC 8949) that a unit in serial recovery mode reads and writes, with Qt's codec.
// Keys are text; values have only the types that occur in requests.
#pragma once

#include <QByteArray>
#include <QCborMap>
#include <QCborValue>
#include <QString>
#include <optional>
#include <vector>

namespace simulator {

struct CborEntry {
    QString key;
    QCborValue value;  // an integer of 0 or more, or a byte string
};

// The entries of a map in their order; nothing when the bytes are not one whole map, of definite or
// indefinite length, with only such entries.
std::optional<std::vector<CborEntry>> ReadCborMap(QByteArray const& bytes);

// The map with its entries in the order in which they were added. `definite`: it begins with its
// size; otherwise it ends with a break.
QByteArray EncodeCborMap(QCborMap const& map, bool definite);

}  // namespace simulator
