// What dfu-util's output means. Pure: bytes in, value out; running the tool is
// stm32_dfu_util_updater.h's.
#pragma once

#include <optional>
#include <string_view>

namespace stm32_updater {

// The percentage of the newest download bar in the last line of `output`; nothing when that line
// has none, which includes output that ends in a newline. dfu-util separates the bars by carriage
// returns only, so that one line may hold many of them.
//
// The answer is that of the expression "Download.*\]\s*(\d+)%", in which the dot also stands for a
// carriage return, found in time proportional to the output whatever it contains. A number beyond
// the range of int is 0.
std::optional<int> FindDownloadPercentage(std::string_view output);

}  // namespace stm32_updater
