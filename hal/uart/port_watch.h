// Notices that an open serial port is gone, because the cable was pulled or the adapter failed, and
// closes it. For the two users of QSerialPort: hal/uart/uart.cpp and updater/serial_line.cpp.
#pragma once

#include <QObject>
#include <chrono>
#include <functional>

class QSerialPort;

namespace hal::uart {

// A lost port either reports an error, and would report it again and again; or Qt takes the end of
// the line for an empty read, reports nothing, and reads again and again (6.8 does, 6.4 does not).
// Therefore the watch also asks the system.
class PortWatch final : public QObject {
    Q_OBJECT

public:
    // How often the system is asked while the event loop runs: a customer does not notice it, and a
    // port that reads without end does not keep a processor busy for longer.
    static constexpr std::chrono::milliseconds kInterval{100};

    // `port` is open. It becomes the parent, so the watch moves to the port's thread with it.
    // `on_loss` (may be empty) is called once, on that thread, after the port has been closed.
    explicit PortWatch(QSerialPort* port, std::function<void()> on_loss = {});

    [[nodiscard]] bool IsLost() const { return lost_; }

    // Asks the system now. For whoever waits for the port without the event loop.
    void Check();

    // For whoever finds out by a failed operation. Logs why and closes the port. The second call
    // does nothing.
    void Lose(QString const& reason);

private:
    void CheckRepeatedly();

    QSerialPort* port_;
    std::function<void()> on_loss_;
    bool lost_ = false;
};

}  // namespace hal::uart
