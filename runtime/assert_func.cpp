#include "runtime/assert_func.h"

#include <fmt/format.h>

#include <chrono>
#include <iterator>

#include "runtime/bounded_string.h"
#include "runtime/log.h"
#include "runtime/task.h"
#include "runtime/time.h"

extern "C" void __assert_func(char const* file, int line, char const*, char const* expression)
{
    etl::string<256> text;
    fmt::format_to(std::back_inserter(text), "Assert: {}:{}, {}", file, line, expression);
    detail::DoLog(common::log_level_t::kError, text);
    while (true) {
        if (!context::InInterruptContext()) {
            kelvane::time::delay(std::chrono::seconds(1));
        }
    }
}
