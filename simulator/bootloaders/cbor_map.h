// The maps (CBOR, RFC 8949) that a unit in serial recovery mode reads and writes. Not a general
// codec: text keys, and of the values only what its requests and answers have.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace simulator {

struct CborEntry {
    std::string key;
    std::variant<uint64_t, std::vector<std::byte>> value;  // unsigned number, or byte string
};

// The entries of a map in their order; nothing when the bytes are not one whole map, of definite or
// indefinite length, with such entries only.
std::optional<std::vector<CborEntry>> ReadCborMap(std::span<std::byte const> bytes);

// Collects a map's entries in their order.
class CborMap {
public:
    void Put(std::string_view key, int64_t number);
    void Put(std::string_view key, std::span<std::byte const> bytes);
    void Put(std::string_view key, std::string_view text);
    void Put(std::string_view key, CborMap const& only_element);  // as an array of one map

    // `definite`: the map begins with its size; otherwise it ends with a mark.
    std::vector<std::byte> Encode(bool definite) const;

private:
    void PutKey(std::string_view key);

    std::vector<std::byte> entries_;
    uint64_t count_ = 0;
};

}  // namespace simulator
