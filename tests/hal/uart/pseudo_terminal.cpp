#include "tests/hal/uart/pseudo_terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace hal::uart::test {
namespace {

[[noreturn]] void ThrowErrno(char const* what)
{
    throw std::system_error(errno, std::generic_category(), what);
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

PseudoTerminal::PseudoTerminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
{
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
        ThrowErrno("pty");
    }
    // Raw from the start, so that nothing is echoed before the port sets its own modes.
    termios modes{};
    if (tcgetattr(master_, &modes) != 0) {
        ThrowErrno("tcgetattr");
    }
    cfmakeraw(&modes);
    if (tcsetattr(master_, TCSANOW, &modes) != 0) {
        ThrowErrno("tcsetattr");
    }
    path_ = QString::fromLocal8Bit(ptsname(master_));
}

PseudoTerminal::~PseudoTerminal()
{
    close(master_);
}

void PseudoTerminal::Send(QByteArray const& bytes)
{
    qsizetype sent = 0;
    while (sent < bytes.size()) {
        auto const count =
            write(master_, bytes.constData() + sent, static_cast<size_t>(bytes.size() - sent));
        if (count < 0) {
            ThrowErrno("write");
        }
        sent += count;
    }
}

QByteArray PseudoTerminal::Receive(qsizetype size, std::chrono::milliseconds timeout)
{
    auto const deadline = std::chrono::steady_clock::now() + timeout;
    QByteArray received;
    while (received.size() < size && (Poll(master_, POLLIN, deadline) & POLLIN) != 0) {
        QByteArray piece(size - received.size(), Qt::Uninitialized);
        auto const count = read(master_, piece.data(), static_cast<size_t>(piece.size()));
        if (count <= 0) {
            break;
        }
        received.append(piece.constData(), count);
    }
    return received;
}

bool PseudoTerminal::WaitForClose(std::chrono::milliseconds timeout)
{
    return (Poll(master_, 0, std::chrono::steady_clock::now() + timeout) & POLLHUP) != 0;
}

}  // namespace hal::uart::test
