// Shows any bytes as if a customer had sent them as the record of a session: it ends, and a file
// that is damaged is said to be.
#include <QByteArrayView>
#include <cstddef>
#include <cstdint>

#include "fuzz/require.h"
#include "record/pcapng_reader.h"
#include "session_view/view.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    auto const recording = record::ReadPcapng(
        QByteArrayView(reinterpret_cast<char const*>(data), static_cast<qsizetype>(size)));

    for (auto const& text :
         {session_view::FormatConversation(recording), session_view::FormatSummary(recording)}) {
        Require(text.contains(recording.error), "the damage is named");
        Require(!text.contains(QChar(0x1B)), "nothing steers the terminal");
        Require(text.endsWith(QLatin1Char('\n')), "the last line ends");
    }
    return 0;
}
