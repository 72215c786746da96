// Keeps what the program prints from the standard output while it lives, and collects its failure
// texts. A matrix prints hundreds of thousands.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/console.h"

namespace cuts {

// One at a time.
class QuietConsole {
public:
    QuietConsole()
    {
        std::fflush(stdout);
        auto const nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (stdout_ < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) {
            throw std::runtime_error("cannot turn the standard output away");
        }
        close(nowhere);
        kelvane::SetConsoleListener([](std::string_view text) { texts_.emplace_back(text); });
    }
    ~QuietConsole()
    {
        kelvane::SetConsoleListener(nullptr);
        std::fflush(stdout);
        dup2(stdout_, STDOUT_FILENO);
        close(stdout_);
        texts_.clear();
    }
    QuietConsole(QuietConsole const&) = delete;
    QuietConsole& operator=(QuietConsole const&) = delete;

    // The texts since the last call, in their order.
    static std::vector<std::string> TakeTexts() { return std::exchange(texts_, {}); }

private:
    int stdout_ = dup(STDOUT_FILENO);
    inline static std::vector<std::string> texts_;
};

}  // namespace cuts
