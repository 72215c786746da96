// OTP areas for the tests, written byte by byte: nothing here knows the code under test.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

inline constexpr size_t kOtpAreaSize = 512;

// `size` bytes that nobody ever programmed.
inline std::vector<std::byte> UnprogrammedArea(size_t size = kOtpAreaSize)
{
    return std::vector<std::byte>(size, std::byte{0xFF});
}

// Puts `bytes` at `offset`; all of them must lie inside `area`.
inline void Put(std::vector<std::byte>& area, size_t offset, std::initializer_list<uint8_t> bytes)
{
    std::ranges::transform(bytes, area.begin() + static_cast<std::ptrdiff_t>(offset),
                           [](uint8_t byte) { return std::byte{byte}; });
}
