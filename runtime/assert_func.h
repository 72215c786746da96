// The hook that the C library of the shared code calls when an assertion fails.
#pragma once

// Logs "Assert: <file>:<line>, <expression>" at level 3, then blocks the calling thread for ever,
// so that a debugger finds it there. The other threads go on. No argument is null. The C library
// fixes the name of this hook. NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" [[noreturn]] void __assert_func(char const* file, int line, char const* function,
                                           char const* expression);
