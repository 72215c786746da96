#include "modules/stm32_updater/dfu_util_output.h"

#include <algorithm>
#include <limits>

namespace stm32_updater {

namespace {

constexpr std::string_view kTitle = "Download";
constexpr int64_t kLargestNumber = std::numeric_limits<int>::max();

bool IsSpace(char byte)
{
    return std::string_view(" \t\v\f\r").find(byte) != std::string_view::npos;
}

bool IsDigit(char byte)
{
    return byte >= '0' && byte <= '9';
}

}  // namespace

void DownloadBarReader::Read(std::string_view output)
{
    if (auto const newline = output.rfind('\n'); newline != std::string_view::npos) {
        *this = {};
        output.remove_prefix(newline + 1);
    }
    for (char const byte : output) {
        if (title_length_ < kTitle.size()) {
            ReadTitle(byte);
        } else {
            ReadBar(byte);
        }
    }
}

std::optional<int> DownloadBarReader::TakePercentage()
{
    auto const percentage = percentage_;
    *this = {};
    return percentage;
}

void DownloadBarReader::ReadTitle(char byte)
{
    if (byte != kTitle[title_length_]) {
        // The first letter stands nowhere else in it, so nothing but this byte can begin it anew.
        title_length_ = 0;
    }
    if (byte == kTitle[title_length_]) {
        ++title_length_;
    }
}

void DownloadBarReader::ReadBar(char byte)
{
    if (byte == ']') {
        place_ = Place::kBracket;
        number_ = 0;
    } else if (place_ != Place::kBar && IsDigit(byte)) {
        place_ = Place::kNumber;
        AddDigit(byte);
    } else if (place_ != Place::kBracket || !IsSpace(byte)) {
        if (place_ == Place::kNumber && byte == '%') {
            percentage_ = number_ > kLargestNumber ? 0 : static_cast<int>(number_);
        }
        place_ = Place::kBar;
    }
}

void DownloadBarReader::AddDigit(char digit)
{
    constexpr int64_t kBase = 10;
    number_ = std::min(number_ * kBase + (digit - '0'), kLargestNumber + 1);
}

}  // namespace stm32_updater
