// Bytes as tests write them: literals of int, slices and frames with their checksum. None of it
// comes from the code under test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/pattern_image.h"

namespace stm32_updater::test {

using Bytes = std::vector<std::byte>;

Bytes ToBytes(std::initializer_list<int> values);

// "7f 00 ff"; empty for no bytes.
std::string ToHex(Bytes const& bytes);

Bytes Slice(Bytes const& bytes, size_t offset, size_t size);

Bytes Join(Bytes first, Bytes const& second);

// The four bytes of `address`, the highest first, then their XOR.
Bytes AddressBytes(uint32_t address);

// `bytes`, then their XOR.
Bytes WithXor(Bytes bytes);

}  // namespace stm32_updater::test
