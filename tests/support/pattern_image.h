// The image that tests write to a unit.
#pragma once

#include <cstddef>
#include <vector>

// `size` bytes in which neighbouring blocks of 256 bytes differ, so that a block that is written
// twice or to another block's place shows.
template <typename Bytes = std::vector<std::byte>>
Bytes PatternImage(size_t size)
{
    Bytes image;
    image.resize(static_cast<typename Bytes::size_type>(size));
    for (size_t i = 0; auto& byte : image) {
        byte = static_cast<typename Bytes::value_type>((i * 7 + (i / 256) * 13 + 1) & 0xFF);
        ++i;
    }
    return image;
}
