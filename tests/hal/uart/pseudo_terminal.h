// A serial line without hardware: the tests hold one end, a QSerialPort opens the other by its
// path. A pty knows no parity and no speed; what it carries is bytes.
#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>

namespace hal::uart::test {

class PseudoTerminal {
public:
    // Throws std::system_error when the machine gives out no pty.
    PseudoTerminal();
    ~PseudoTerminal();
    PseudoTerminal(PseudoTerminal const&) = delete;
    PseudoTerminal& operator=(PseudoTerminal const&) = delete;

    // The path to open, such as /dev/pts/3.
    QString const& Path() const { return path_; }

    // What the unit sends. Must fit into the kernel's buffer (4 KiB) as long as nobody reads.
    void Send(QByteArray const& bytes);

    // The next `size` bytes from the port; fewer when `timeout` passes before they came.
    QByteArray Receive(qsizetype size,
                       std::chrono::milliseconds timeout = std::chrono::seconds(10));

    // Whether the port is closed, waiting up to `timeout` for it. Only after it was open.
    bool WaitForClose(std::chrono::milliseconds timeout = std::chrono::seconds(10));

private:
    int master_;
    QString path_;
};

}  // namespace hal::uart::test
