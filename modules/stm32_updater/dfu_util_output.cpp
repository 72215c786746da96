#include "modules/stm32_updater/dfu_util_output.h"

#include <charconv>
#include <system_error>

namespace stm32_updater {

namespace {

constexpr std::string_view kDownload = "Download";
constexpr std::string_view kSpaces = " \t\n\v\f\r";
constexpr std::string_view kDigits = "0123456789";

std::string_view LastLine(std::string_view output)
{
    auto const newline = output.rfind('\n');
    return newline == std::string_view::npos ? output : output.substr(newline + 1);
}

int ToInt(std::string_view digits)
{
    int value = 0;
    auto const result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return result.ec == std::errc() ? value : 0;
}

// `text` follows a closing bracket.
std::optional<int> ReadPercentage(std::string_view text)
{
    auto const digits_at = text.find_first_not_of(kSpaces);
    if (digits_at == std::string_view::npos) {
        return std::nullopt;
    }
    text.remove_prefix(digits_at);
    auto const digits_end = text.find_first_not_of(kDigits);
    if (digits_end == 0 || digits_end == std::string_view::npos || text[digits_end] != '%') {
        return std::nullopt;
    }
    return ToInt(text.substr(0, digits_end));
}

}  // namespace

std::optional<int> FindDownloadPercentage(std::string_view output)
{
    auto line = LastLine(output);
    auto const download_at = line.find(kDownload);
    if (download_at == std::string_view::npos) {
        return std::nullopt;
    }
    line.remove_prefix(download_at + kDownload.size());

    // From the end: the newest bar is the last one, and a bar cut short there has none yet.
    for (auto end = line.rfind(']'); end != std::string_view::npos; end = line.rfind(']')) {
        if (auto const percentage = ReadPercentage(line.substr(end + 1))) {
            return percentage;
        }
        line = line.substr(0, end);
    }
    return std::nullopt;
}

}  // namespace stm32_updater
