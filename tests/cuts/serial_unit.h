// A simulated unit behind a real port, a pseudo-terminal, whose line fails at any byte. The event
// loop of one thread serves many of them.
#pragma once

#include <QObject>
#include <QString>
#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "simulator/bootloaders/serial_bootloader.h"
#include "simulator/host/pseudo_terminal.h"

class QSocketNotifier;

namespace cuts {

enum class SerialFault {
    kSilence,  // this byte and all that follow are lost, in both directions; the port stays
    kHangUp,   // the port is gone
    kSwallow,  // this byte is lost
    kGarble,   // this byte is changed
    // The port is gone `delay` after this byte: the host may be sending the next command.
    kHangUpAfter,
};

// Where a line fails: at byte number `byte`, from 0, of those in one direction.
struct SerialCut {
    SerialFault fault;
    bool to_unit;
    size_t byte;
    std::chrono::microseconds delay{0};
};

// A byte that the line was to carry. `command`: how many commands the unit had ended before.
struct CarriedByte {
    bool to_unit;
    size_t command;
};

// Belongs to the thread that constructs it, which must run an event loop.
class SerialUnit : public QObject {
public:
    explicit SerialUnit(std::unique_ptr<simulator::SerialBootloader> bootloader);
    ~SerialUnit() override;

    // Resets the unit, which keeps its memory, and gives it a new port. `path`: where the port is
    // to be found; a symbolic link, as a pseudo-terminal's own name may be in use again at once.
    void Plug(QString const& path, std::optional<SerialCut> cut = {});
    void Unplug();
    // The port stays and is silent.
    void Fade() { silent_ = true; }

    // Prints `size` bytes as fast as the host takes them, as firmware does with its console.
    // Blocks; `on_piece` is called now and then. False if the host takes nothing for ten seconds.
    bool Print(size_t size, std::function<void()> const& on_piece);

    // When the cut happened; nothing before that.
    std::optional<std::chrono::steady_clock::time_point> CutTime() const { return cut_time_; }

    // Of the session since the unit was plugged in.
    std::vector<CarriedByte> const& Tape() const { return tape_; }

    simulator::SerialBootloader& Bootloader() { return *bootloader_; }

private:
    void Serve();
    void TakeFromHost(std::byte byte);
    std::optional<std::byte> Carry(bool to_unit, std::byte byte);
    std::optional<std::byte> Strike(std::byte byte);

    std::unique_ptr<simulator::SerialBootloader> bootloader_;
    std::unique_ptr<simulator::PseudoTerminal> line_;
    std::unique_ptr<QSocketNotifier> notifier_;
    QString path_;
    std::optional<SerialCut> cut_;
    std::optional<std::chrono::steady_clock::time_point> cut_time_;
    bool silent_ = false;
    bool hung_up_ = false;
    bool hangs_up_soon_ = false;
    std::array<size_t, 2> carried_{};  // bytes, from the unit and to it
    size_t command_ = 0;
    std::vector<CarriedByte> tape_;
    std::vector<std::byte> answer_;  // on its way to the host
};

}  // namespace cuts
