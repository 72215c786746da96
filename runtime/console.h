// What the shared code says on standard output. A desktop program that wants to keep it registers a
// listener; a device has none.
#pragma once

#include <string_view>

namespace kelvane {

// Called on the thread that prints, after the text has gone out. Must not print itself, nor throw.
using ConsoleListener = void (*)(std::string_view text);

// Writes the text as it stands and flushes: the process may end without doing so.
void PrintToConsole(std::string_view text);

// Replaces the listener; nullptr for none. Any thread; a text that is being printed meanwhile may
// still reach the old one.
void SetConsoleListener(ConsoleListener listener);

}  // namespace kelvane
