#include "simulator/host/pseudo_terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace simulator {
namespace {

[[noreturn]] void ThrowSystemError()
{
    throw std::system_error(errno, std::generic_category(), "pseudo-terminal");
}

// The events of `fd` within the time left until `deadline`; 0 for none.
short Poll(int fd, short events, std::chrono::steady_clock::time_point deadline)
{
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd request{fd, events, 0};
    poll(&request, 1, static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0)));
    return request.revents;
}

}  // namespace

PseudoTerminal::PseudoTerminal()
    : unit_end_(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
{
    char name[64];
    termios modes{};
    if (unit_end_ < 0 || grantpt(unit_end_) != 0 || unlockpt(unit_end_) != 0 ||
        ptsname_r(unit_end_, name, sizeof(name)) != 0 || tcgetattr(unit_end_, &modes) != 0) {
        ThrowSystemError();
    }
    path_ = name;
    cfmakeraw(&modes);
    if (tcsetattr(unit_end_, TCSANOW, &modes) != 0) {
        ThrowSystemError();
    }
}

PseudoTerminal::~PseudoTerminal()
{
    close(unit_end_);
    if (client_end_ >= 0) {
        close(client_end_);
    }
}

void PseudoTerminal::HoldOpen()
{
    client_end_ = open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (client_end_ < 0) {
        ThrowSystemError();
    }
}

unsigned PseudoTerminal::Speed() const
{
    static constexpr std::array<std::pair<speed_t, unsigned>, 6> kSpeeds{{{B9600, 9600},
                                                                          {B38400, 38400},
                                                                          {B115200, 115200},
                                                                          {B230400, 230400},
                                                                          {B460800, 460800},
                                                                          {B921600, 921600}}};
    termios modes{};
    if (tcgetattr(unit_end_, &modes) != 0) {
        return 0;
    }
    auto const* const found =
        std::ranges::find(kSpeeds, cfgetospeed(&modes), &std::pair<speed_t, unsigned>::first);
    return found == kSpeeds.end() ? 0 : found->second;
}

void PseudoTerminal::Send(std::string_view bytes)
{
    while (!bytes.empty()) {
        auto const count = write(unit_end_, bytes.data(), bytes.size());
        if (count < 0) {
            ThrowSystemError();
        }
        bytes.remove_prefix(static_cast<size_t>(count));
    }
}

std::string PseudoTerminal::Receive(size_t size, std::chrono::milliseconds timeout)
{
    auto const deadline = std::chrono::steady_clock::now() + timeout;
    std::string received;
    while (received.size() < size && (Poll(unit_end_, POLLIN, deadline) & POLLIN) != 0) {
        std::string piece(size - received.size(), '\0');
        auto const count = read(unit_end_, piece.data(), piece.size());
        if (count <= 0) {
            break;
        }
        received.append(piece, 0, static_cast<size_t>(count));
    }
    return received;
}

bool PseudoTerminal::WaitForClose(std::chrono::milliseconds timeout) const
{
    return (Poll(unit_end_, 0, std::chrono::steady_clock::now() + timeout) & POLLHUP) != 0;
}

}  // namespace simulator
