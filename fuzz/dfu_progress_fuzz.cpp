// Any bytes as what dfu-util printed between two looks, in two pieces, held against the expression
// that says what they mean.
#include <QByteArray>
#include <QRegularExpression>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "fuzz/require.h"
#include "modules/stm32_updater/dfu_util_output.h"

namespace {

std::optional<int> ByDefinition(QByteArray const& output)
{
    static QRegularExpression const bar(QStringLiteral(R"(Download.*\]\s*(\d+)%)"),
                                        QRegularExpression::DotMatchesEverythingOption);
    auto const match = bar.match(QString::fromUtf8(output).split(QLatin1Char('\n')).last());
    return match.hasMatch() ? std::optional(match.captured(1).toInt()) : std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    // Without a copy, so that a read beyond the end is seen.
    auto const* const text = reinterpret_cast<char const*>(data);
    auto const output = std::string_view(text, size);
    // Each length of output is cut somewhere else, and a byte decides, too.
    auto const cut = size == 0 ? 0 : (size + data[size - 1]) % size;

    stm32_updater::DownloadBarReader reader;
    reader.Read(output.substr(0, cut));
    reader.Read(output.substr(cut));

    Require(reader.TakePercentage() == ByDefinition(QByteArray(text, static_cast<qsizetype>(size))),
            "the percentage is the one by definition");
    return 0;
}
