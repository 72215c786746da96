// The image that tests write to a unit.
#pragma once

#include <cstddef>
#include <vector>

// `size` bytes in which neighbouring blocks of 256 bytes differ, so that a block that is written
// twice or to another block's place shows.
inline std::vector<std::byte> PatternImage(size_t size)
{
    std::vector<std::byte> image(size);
    for (size_t i = 0; i < size; ++i) {
        image[i] = static_cast<std::byte>((i * 7 + (i / 256) * 13 + 1) & 0xFF);
    }
    return image;
}
