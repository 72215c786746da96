// Reads the progress that dfu-util prints during a download. Pure; stm32_dfu_util_updater.h runs
// the tool.
#pragma once

#include <QByteArray>
#include <optional>

namespace stm32_updater {

// Appends `output` to `tail` and keeps the last kDfuOutputTail bytes of both.
void AppendToTail(QByteArray& tail, QByteArray const& output);

// The percentage of the newest progress bar in the last line of `output`; nothing when that line
// has no bar, which includes output that ends in a newline. dfu-util separates the bars by carriage
// returns only, so one line may hold many. A number beyond the range of int is 0.
std::optional<int> FindDownloadPercentage(QByteArray const& output);

}  // namespace stm32_updater
