// An image as a file, for the tools that write it to a simulated unit.
#pragma once

#include <QString>
#include <cstddef>

#include "tests/simulator/bootloader_client.h"
#include "tests/support/files.h"

namespace simulator::test {

// Writes `size` bytes of which neighbours and pages differ, and returns them.
inline Bytes WriteImageFile(QString const& path, size_t size)
{
    Bytes image;
    for (size_t i = 0; i < size; ++i) {
        image.push_back(static_cast<std::byte>(i * 7 % 251));
    }
    WriteFile(path, {reinterpret_cast<char const*>(image.data()), static_cast<qsizetype>(size)});
    return image;
}

}  // namespace simulator::test
