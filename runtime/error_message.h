// Error texts that name their place of origin: "<source file>:<line> <message>", at most 256
// characters, without the heap.
#pragma once

#include <exception>
#include <source_location>

#include "runtime/bounded_string.h"

namespace kelvane {

// A text that ends with a newline. A text that is too long is cut, loses its newline and is marked
// as truncated. A null message counts as empty.
class ErrorMessage {
public:
    explicit ErrorMessage(char const* message,
                          std::source_location const& location = std::source_location::current());
    explicit ErrorMessage(etl::string_view message,
                          std::source_location const& location = std::source_location::current());

    // The message, then "  <- " and the whole text of the cause, newline included.
    ErrorMessage(etl::string<256> const& message, ErrorMessage const& cause,
                 std::source_location const& location = std::source_location::current());

    etl::string<256> const& Text() const { return text_; }

private:
    etl::string<256> text_;
};

// The exception of the shared protocol code. Its text has no newline at the end.
class ExceptionString : public std::exception {
public:
    explicit ExceptionString(char const* message, std::source_location const& location =
                                                      std::source_location::current());

    char const* what() const noexcept override { return text_.c_str(); }

    etl::string<256> const& Text() const { return text_; }

    // Makes the destructor of this exception, and of its copies, wipe the text from memory.
    void SetSecure() { text_.set_secure(); }

private:
    etl::string<256> text_;
};

}  // namespace kelvane
