#include "tests/cuts/quiet_console.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "runtime/console.h"

namespace cuts {
namespace {

std::vector<std::string> g_texts;

void Collect(std::string_view text)
{
    g_texts.emplace_back(text);
}

}  // namespace

QuietConsole::QuietConsole()
{
    std::fflush(stdout);
    stdout_ = dup(STDOUT_FILENO);
    auto const nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (stdout_ < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) {
        throw std::runtime_error("cannot turn the standard output away");
    }
    close(nowhere);
    g_texts.clear();
    kelvane::SetConsoleListener(&Collect);
}

QuietConsole::~QuietConsole()
{
    kelvane::SetConsoleListener(nullptr);
    std::fflush(stdout);
    dup2(stdout_, STDOUT_FILENO);
    close(stdout_);
}

std::vector<std::string> QuietConsole::TakeTexts()
{
    return std::exchange(g_texts, {});
}

}  // namespace cuts
