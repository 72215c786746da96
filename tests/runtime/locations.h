// Source locations with file names of the test's choice. #line is the only way to name them, so
// nothing may follow below.
#pragma once

#include <source_location>

namespace locations {

// What a location holds when nothing filled it in: no file, line 0.
inline constexpr std::source_location kNone{};

#line 42 "../../../repo/modules/some_module/engine.cpp"
inline constexpr auto kEngine = std::source_location::current();
#line 7 "plain.cpp"
inline constexpr auto kWithoutSlash = std::source_location::current();
#line 123456 "/tail/"
inline constexpr auto kOnlyFolders = std::source_location::current();

}  // namespace locations
