// The shared code's messages on standard output. A desktop program that wants to keep them
// registers a listener; a device has none.
#pragma once

#include <string_view>

namespace kelvane {

// Called on the thread that prints, after the text has gone out. Must not print itself, nor throw.
using ConsoleListener = void (*)(std::string_view text);

// Writes the text unchanged and flushes it, because the process may end without flushing.
void PrintToConsole(std::string_view text);

// Replaces the listener; nullptr for none. Any thread. A text that is being printed meanwhile may
// still reach the old listener.
void SetConsoleListener(ConsoleListener listener);

}  // namespace kelvane
