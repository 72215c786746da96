#include "tests/modules/stm32_updater/bytes.h"

#include <QByteArray>
#include <iterator>

namespace stm32_updater::test {

Bytes ToBytes(std::initializer_list<int> values)
{
    Bytes bytes;
    bytes.reserve(values.size());
    for (int const value : values) {
        bytes.push_back(static_cast<std::byte>(value));
    }
    return bytes;
}

std::string ToHex(Bytes const& bytes)
{
    QByteArray const raw(reinterpret_cast<char const*>(bytes.data()),
                         static_cast<qsizetype>(bytes.size()));
    return raw.toHex(' ').toStdString();
}

Bytes Slice(Bytes const& bytes, size_t offset, size_t size)
{
    auto const first = std::next(bytes.begin(), static_cast<std::ptrdiff_t>(offset));
    return {first, std::next(first, static_cast<std::ptrdiff_t>(size))};
}

Bytes Join(Bytes first, Bytes const& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Bytes AddressBytes(uint32_t address)
{
    Bytes bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<std::byte>(address >> shift & 0xFF));
    }
    return WithXor(bytes);
}

Bytes WithXor(Bytes bytes)
{
    std::byte sum{0};
    for (auto const value : bytes) {
        sum ^= value;
    }
    bytes.push_back(sum);
    return bytes;
}

}  // namespace stm32_updater::test
