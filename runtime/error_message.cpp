#include "runtime/error_message.h"

#include <string>

namespace kelvane {
namespace {

etl::string_view OrEmpty(char const* text)
{
    return text == nullptr ? etl::string_view() : etl::string_view(text);
}

void AppendWithLocation(etl::string_base& text, char const* message,
                        std::source_location const& location)
{
    auto const file = OrEmpty(location.file_name());
    auto const last_slash = file.rfind('/');
    text.append(last_slash == etl::string_view::npos ? file : file.substr(last_slash + 1));
    text.append(":");
    text.append(std::to_string(location.line()));
    text.append(" ");
    text.append(OrEmpty(message));
}

}  // namespace

ErrorMessage::ErrorMessage(char const* message, std::source_location const& location)
{
    AppendWithLocation(text_, message, location);
    text_.append("\n");
}

// A view need not end with a NUL, so its characters are copied into a string that does.
ErrorMessage::ErrorMessage(etl::string_view message, std::source_location const& location)
    : ErrorMessage(etl::string<256>(message).c_str(), location)
{}

ErrorMessage::ErrorMessage(etl::string<256> const& message, ErrorMessage const& cause,
                           std::source_location const& location)
    : ErrorMessage(message.c_str(), location)
{
    text_.append("  <- ");
    // A truncated cause fills its string, so appending it truncates this text as well.
    text_.append(cause.text_);
}

ExceptionString::ExceptionString(char const* message, std::source_location const& location)
{
    AppendWithLocation(text_, message, location);
}

}  // namespace kelvane
