// A simulated unit for tests behind its port, and a client's end of its line as a plain file
// descriptor.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>

#include "simulator/simulated_unit.h"
#include "tests/simulator/bootloader_client.h"

namespace simulator::test {

inline constexpr int kTimeoutMs = 5000;

// Opens `path`; reads wait for a bounded time.
class RawClient {
public:
    explicit RawClient(std::string const& path) : fd_(open(path.c_str(), O_RDWR | O_NOCTTY)) {}
    ~RawClient() { close(fd_); }
    RawClient(RawClient const&) = delete;
    RawClient& operator=(RawClient const&) = delete;

    bool IsOpen() const { return fd_ >= 0; }

    bool Send(Bytes const& bytes)
    {
        return write(fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    }

    // The next `size` bytes, or those that came before the line fell silent or hung up.
    Bytes Receive(size_t size, int timeout_ms = kTimeoutMs)
    {
        Bytes bytes(size);
        size_t received = 0;
        while (received < size) {
            pollfd readable{fd_, POLLIN, 0};
            if (poll(&readable, 1, timeout_ms) != 1) {
                break;
            }
            auto const count = read(fd_, bytes.data() + received, size - received);
            if (count <= 0) {
                break;
            }
            received += static_cast<size_t>(count);
        }
        bytes.resize(received);
        return bytes;
    }

    Bytes Ask(Bytes const& request, size_t answer_size)
    {
        return Send(request) ? Receive(answer_size) : Bytes{};
    }

    // True once the other end is closed, within the bound.
    bool HangsUp()
    {
        pollfd line{fd_, 0, 0};
        return poll(&line, 1, kTimeoutMs) == 1 && (line.revents & POLLHUP) != 0;
    }

private:
    int fd_;
};

inline SimulatedUnitOptions UniqueOptions(std::string const& suffix = {})
{
    SimulatedUnitOptions options;
    options.port.name = MakeUniquePortName() + suffix;
    return options;
}

// A unit that is plugged in, alone in its testbed.
struct PluggedUnit {
    explicit PluggedUnit(SimulatedUnitOptions options = UniqueOptions())
        : testbed(std::make_shared<UsbTestbed>()), unit(testbed, std::move(options))
    {
        unit.Plug();
    }

    std::string Pty() { return unit.Status().pty_path; }

    std::shared_ptr<UsbTestbed> testbed;
    SimulatedUnit unit;
};

}  // namespace simulator::test
