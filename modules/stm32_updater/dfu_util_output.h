// What dfu-util's output means. Pure: bytes in, value out; running the tool is
// stm32_dfu_util_updater.h's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace stm32_updater {

// Finds the percentage of the newest download bar in output that comes in pieces of any size. Keeps
// none of the output: a tool may print as much as it likes.
//
// dfu-util separates the bars by carriage returns only, so that one line may hold many of them. The
// answer is that of the expression "Download.*\]\s*(\d+)%", in which the dot also stands for a
// carriage return. A number beyond the range of int is 0.
class DownloadBarReader {
public:
    void Read(std::string_view output);

    // Of the last line of what was read since the last call, as if nothing had come before it.
    // Nothing when that line has no bar, which includes output that ends in a newline.
    std::optional<int> TakePercentage();

private:
    // What the next byte follows, once the line has had its "Download".
    enum class Place { kBar, kBracket, kNumber };

    void ReadTitle(char byte);
    void ReadBar(char byte);
    void AddDigit(char digit);

    size_t title_length_ = 0;  // how much of "Download" has come
    Place place_ = Place::kBar;
    int64_t number_ = 0;
    std::optional<int> percentage_;
};

}  // namespace stm32_updater
