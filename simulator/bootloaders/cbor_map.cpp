#include "simulator/bootloaders/cbor_map.h"

#include <utility>

namespace simulator {
namespace {

using Bytes = std::vector<std::byte>;
using ByteSpan = std::span<std::byte const>;

// Major types.
constexpr unsigned kUnsigned = 0;
constexpr unsigned kNegative = 1;
constexpr unsigned kByteString = 2;
constexpr unsigned kTextString = 3;
constexpr unsigned kArray = 4;
constexpr unsigned kMap = 5;

constexpr std::byte kIndefiniteMap{0xBF};
constexpr std::byte kBreak{0xFF};

// Up to here a number stands in the head's first byte; from here on 1, 2, 4 or 8 bytes follow it.
constexpr unsigned kOneByteFollows = 24;
constexpr unsigned kEightBytesFollow = 27;

void AppendHead(Bytes& bytes, unsigned type, uint64_t number)
{
    auto const first = [type](unsigned info) { return static_cast<std::byte>(type << 5 | info); };
    if (number < kOneByteFollows) {
        bytes.push_back(first(static_cast<unsigned>(number)));
        return;
    }
    unsigned const log_size = number <= 0xFF         ? 0
                              : number <= 0xFFFF     ? 1
                              : number <= 0xFFFFFFFF ? 2
                                                     : 3;
    bytes.push_back(first(kOneByteFollows + log_size));
    for (unsigned i = 1U << log_size; i > 0; --i) {
        bytes.push_back(static_cast<std::byte>(number >> 8 * (i - 1) & 0xFF));
    }
}

void AppendText(Bytes& bytes, std::string_view text)
{
    AppendHead(bytes, kTextString, text.size());
    for (auto const character : text) {
        bytes.push_back(static_cast<std::byte>(character));
    }
}

struct Head {
    unsigned type;
    uint64_t number;
};

// Takes items off the front of its bytes; a failure takes an unknown part of them.
class Reader {
public:
    explicit Reader(ByteSpan bytes) : rest_(bytes) {}

    bool AtEnd() const { return rest_.empty(); }

    bool TakeIf(std::byte byte)
    {
        if (rest_.empty() || rest_.front() != byte) {
            return false;
        }
        rest_ = rest_.subspan(1);
        return true;
    }

    std::optional<ByteSpan> Take(uint64_t size)
    {
        if (size > rest_.size()) {
            return std::nullopt;
        }
        auto const taken = rest_.first(static_cast<size_t>(size));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

    std::optional<Head> TakeHead()
    {
        auto const first = Take(1);
        if (!first) {
            return std::nullopt;
        }
        auto const type = std::to_integer<unsigned>(first->front()) >> 5;
        auto const info = std::to_integer<unsigned>(first->front()) & 0x1F;
        if (info < kOneByteFollows) {
            return Head{type, info};
        }
        auto const bytes =
            info <= kEightBytesFollow ? Take(1U << (info - kOneByteFollows)) : std::nullopt;
        if (!bytes) {
            return std::nullopt;
        }
        uint64_t number = 0;
        for (auto const byte : *bytes) {
            number = number << 8 | std::to_integer<uint64_t>(byte);
        }
        return Head{type, number};
    }

    std::optional<CborEntry> TakeEntry()
    {
        auto const key_head = TakeHead();
        auto const key =
            key_head && key_head->type == kTextString ? Take(key_head->number) : std::nullopt;
        auto const head = key ? TakeHead() : std::nullopt;
        if (!head) {
            return std::nullopt;
        }
        CborEntry entry;
        for (auto const byte : *key) {
            entry.key += static_cast<char>(byte);
        }
        if (head->type == kUnsigned) {
            entry.value = head->number;
            return entry;
        }
        auto const bytes = head->type == kByteString ? Take(head->number) : std::nullopt;
        if (!bytes) {
            return std::nullopt;
        }
        entry.value = Bytes(bytes->begin(), bytes->end());
        return entry;
    }

private:
    ByteSpan rest_;
};

}  // namespace

std::optional<std::vector<CborEntry>> ReadCborMap(ByteSpan bytes)
{
    Reader reader(bytes);
    bool const indefinite = reader.TakeIf(kIndefiniteMap);
    auto const head = indefinite ? std::nullopt : reader.TakeHead();
    if (!indefinite && (!head || head->type != kMap)) {
        return std::nullopt;
    }
    std::vector<CborEntry> entries;
    while (indefinite ? !reader.TakeIf(kBreak) : entries.size() < head->number) {
        auto entry = reader.TakeEntry();
        if (!entry) {
            return std::nullopt;
        }
        entries.push_back(std::move(*entry));
    }
    return reader.AtEnd() ? std::optional(std::move(entries)) : std::nullopt;
}

void CborMap::PutKey(std::string_view key)
{
    AppendText(entries_, key);
    ++count_;
}

void CborMap::Put(std::string_view key, int64_t number)
{
    PutKey(key);
    // A negative number is stored as how far it is below -1.
    AppendHead(entries_, number < 0 ? kNegative : kUnsigned,
               static_cast<uint64_t>(number < 0 ? -1 - number : number));
}

void CborMap::Put(std::string_view key, ByteSpan bytes)
{
    PutKey(key);
    AppendHead(entries_, kByteString, bytes.size());
    entries_.insert(entries_.end(), bytes.begin(), bytes.end());
}

void CborMap::Put(std::string_view key, std::string_view text)
{
    PutKey(key);
    AppendText(entries_, text);
}

void CborMap::Put(std::string_view key, CborMap const& only_element)
{
    PutKey(key);
    AppendHead(entries_, kArray, 1);
    auto const element = only_element.Encode(true);
    entries_.insert(entries_.end(), element.begin(), element.end());
}

std::vector<std::byte> CborMap::Encode(bool definite) const
{
    Bytes bytes;
    if (definite) {
        AppendHead(bytes, kMap, count_);
    } else {
        bytes.push_back(kIndefiniteMap);
    }
    bytes.insert(bytes.end(), entries_.begin(), entries_.end());
    if (!definite) {
        bytes.push_back(kBreak);
    }
    return bytes;
}

}  // namespace simulator
