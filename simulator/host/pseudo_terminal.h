// A serial line without hardware: this object holds the unit's end, a client such as QSerialPort
// opens the other end by its path. A pseudo-terminal keeps the speed that its client sets, but no
// parity, and carries bytes at any speed (see line_pacer.h).
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace simulator {

// Not thread-safe, but one thread may send while another receives.
class PseudoTerminal {
public:
    // The line is raw from the start: no byte is changed or echoed before a client sets its own
    // modes. Throws std::system_error.
    PseudoTerminal();
    ~PseudoTerminal();
    PseudoTerminal(PseudoTerminal const&) = delete;
    PseudoTerminal& operator=(PseudoTerminal const&) = delete;

    // Holds the client's end open as well, so that the line outlives its clients and stays raw.
    // Throws std::system_error.
    void HoldOpen();

    // The path to open, such as /dev/pts/3.
    std::string const& Path() const { return path_; }

    // The unit's end, non-blocking, and the client's end; the latter is -1 unless it is held open.
    int UnitFd() const { return unit_end_; }
    int ClientFd() const { return client_end_; }

    // Bits a second, as the client has set them; 0 for a speed without a constant in termios.h.
    unsigned Speed() const;

    // Sends bytes to the client. They must fit into the kernel's buffer (4 KiB) as long as nobody
    // reads. Throws std::system_error.
    void Send(std::string_view bytes);

    // The next `size` bytes from the client; fewer if `timeout` passes first.
    std::string Receive(size_t size, std::chrono::milliseconds timeout = std::chrono::seconds(10));

    // Waits up to `timeout` until no client has the line open; false if one still has. Only for a
    // line that a client has had open, and not with HoldOpen().
    bool WaitForClose(std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

private:
    int unit_end_;
    int client_end_ = -1;
    std::string path_;
};

}  // namespace simulator
