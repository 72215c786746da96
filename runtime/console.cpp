#include "runtime/console.h"

#include <atomic>
#include <cstdio>

namespace kelvane {
namespace {

std::atomic<ConsoleListener> console_listener{nullptr};

}  // namespace

void PrintToConsole(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    if (auto* const listener = console_listener.load()) {
        listener(text);
    }
}

void SetConsoleListener(ConsoleListener listener)
{
    console_listener.store(listener);
}

}  // namespace kelvane
