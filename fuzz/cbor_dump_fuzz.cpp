// Dumps any bytes as a CBOR payload.
#include <cstddef>
#include <cstdint>

#include "fuzz/require.h"
#include "mcuboot/cbor_dump.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    auto const payload =
        QByteArray::fromRawData(reinterpret_cast<char const*>(data), static_cast<qsizetype>(size));
    size_t lines = 0;
    mcuboot::dumpCbor(payload, QStringLiteral("fuzz"), [&lines](QString const&) { ++lines; });
    // Each line inside shows at least one byte, or closes a level that took one to open, or is the
    // one error line behind the last good item.
    Require(lines >= 2 && lines <= 2 * size + 3, "the dump is no longer than the payload warrants");
    return 0;
}
