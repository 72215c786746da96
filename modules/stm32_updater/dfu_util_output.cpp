#include "modules/stm32_updater/dfu_util_output.h"

#include <QRegularExpression>
#include <QString>
#include <algorithm>

#include "modules/stm32_updater/limits.h"

namespace stm32_updater {

void AppendToTail(QByteArray& tail, QByteArray const& output)
{
    tail = (tail + output)
               .last(std::min(tail.size() + output.size(), static_cast<qsizetype>(kDfuOutputTail)));
}

std::optional<int> FindDownloadPercentage(QByteArray const& output)
{
    // The dot must match the carriage returns between bars as well.
    static QRegularExpression const bar(QStringLiteral(R"(Download.*\]\s*(\d+)%)"),
                                        QRegularExpression::DotMatchesEverythingOption);
    auto const line = QString::fromUtf8(output.sliced(output.lastIndexOf('\n') + 1));
    // Whatever matches from a later "Download" matches from the first one too. Looking at that one
    // alone keeps the time linear.
    auto const begin = line.indexOf(QLatin1String("Download"));
    if (begin < 0) {
        return std::nullopt;
    }
    auto const match = bar.match(line, begin, QRegularExpression::NormalMatch,
                                 QRegularExpression::AnchorAtOffsetMatchOption);
    return match.hasMatch() ? std::optional(match.captured(1).toInt()) : std::nullopt;
}

}  // namespace stm32_updater
