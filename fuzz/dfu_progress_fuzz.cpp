// Searches any bytes as if dfu-util had printed them between two looks: the search ends, and a
// percentage that it finds is in the last line.
#include <QByteArray>
#include <cstddef>
#include <cstdint>

#include "fuzz/require.h"
#include "modules/stm32_updater/dfu_util_output.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    // Without a copy, so that a read beyond the end is detected.
    auto const output =
        QByteArray::fromRawData(reinterpret_cast<char const*>(data), static_cast<qsizetype>(size));

    auto const percentage = stm32_updater::FindDownloadPercentage(output);

    auto const line = output.mid(output.lastIndexOf('\n') + 1);
    Require(stm32_updater::FindDownloadPercentage(line) == percentage, "only the last line counts");
    // A number that does not fit an int, and one with leading zeros, is printed otherwise.
    Require(!percentage || *percentage == 0 || line.contains(QByteArray::number(*percentage) + '%'),
            "the percentage is in the last line");
    return 0;
}
