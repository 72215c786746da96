#include "tests/cuts/serial_unit.h"

#include <poll.h>
#include <unistd.h>

#include <QFile>
#include <QSocketNotifier>
#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <utility>

namespace cuts {

using Clock = std::chrono::steady_clock;

SerialUnit::SerialUnit(std::unique_ptr<simulator::SerialBootloader> bootloader)
    : bootloader_(std::move(bootloader))
{}

SerialUnit::~SerialUnit()
{
    Unplug();
}

void SerialUnit::Plug(QString const& path, std::optional<SerialCut> cut)
{
    Unplug();
    bootloader_->Reset();
    bootloader_->GetJournal().Clear();
    cut_ = cut;
    cut_time_.reset();
    silent_ = hung_up_ = hangs_up_soon_ = false;
    carried_ = {};
    tape_.clear();
    line_ = std::make_unique<simulator::PseudoTerminal>();
    // Otherwise the line hangs up whenever its client closes it.
    line_->HoldOpen();
    notifier_ = std::make_unique<QSocketNotifier>(line_->UnitFd(), QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, this, [this] { Serve(); });
    path_ = path;
    if (!QFile::link(QString::fromStdString(line_->Path()), path_)) {
        throw std::runtime_error("cannot make the port " + path_.toStdString());
    }
}

void SerialUnit::Unplug()
{
    if (notifier_) {
        // It stays until the next Plug(), since this call may come from it.
        notifier_->setEnabled(false);
    }
    line_.reset();
    if (!path_.isEmpty()) {
        QFile::remove(std::exchange(path_, {}));
    }
}

bool SerialUnit::Print(size_t size, std::function<void()> const& on_piece)
{
    constexpr int kPatienceMs = 10'000;
    static std::string const text(4096, 'x');
    while (size > 0) {
        auto const count = write(line_->UnitFd(), text.data(), std::min(text.size(), size));
        if (count > 0) {
            size -= static_cast<size_t>(count);
            continue;
        }
        on_piece();
        pollfd writable{line_->UnitFd(), POLLOUT, 0};
        if (poll(&writable, 1, kPatienceMs) != 1) {
            return false;
        }
    }
    on_piece();
    return true;
}

void SerialUnit::Serve()
{
    std::array<std::byte, 4096> buffer;
    auto const count = read(line_->UnitFd(), buffer.data(), buffer.size());
    for (ssize_t i = 0; i < count && !hung_up_; ++i) {
        TakeFromHost(buffer[static_cast<size_t>(i)]);
    }
    if (!hung_up_) {
        // It fits: nobody sends a request before the answer to the last one.
        [[maybe_unused]] auto const written =
            write(line_->UnitFd(), answer_.data(), answer_.size());
    }
    answer_.clear();
    if (hangs_up_soon_) {
        // A timer is too coarse.
        for (auto const end = Clock::now() + cut_->delay; Clock::now() < end;) {
        }
    }
    if (hung_up_ || hangs_up_soon_) {
        Unplug();
    }
}

void SerialUnit::TakeFromHost(std::byte byte)
{
    command_ = bootloader_->GetJournal().Entries().size();
    auto const taken = Carry(true, byte);
    if (!taken) {
        return;
    }
    for (auto const& answer : bootloader_->Receive(std::span(&*taken, 1))) {
        for (auto const value : answer.bytes) {
            if (auto const sent = Carry(false, value)) {
                answer_.push_back(*sent);
            }
        }
    }
}

// What becomes of a byte on the line.
std::optional<std::byte> SerialUnit::Carry(bool to_unit, std::byte byte)
{
    auto const number = carried_[to_unit ? 1 : 0]++;
    tape_.push_back({to_unit, command_});
    if (silent_ || hung_up_ || hangs_up_soon_) {
        return std::nullopt;
    }
    if (cut_ && cut_->to_unit == to_unit && cut_->byte == number) {
        return Strike(byte);
    }
    return byte;
}

std::optional<std::byte> SerialUnit::Strike(std::byte byte)
{
    cut_time_ = Clock::now();
    switch (cut_->fault) {
        case SerialFault::kSilence:
            silent_ = true;
            return std::nullopt;
        case SerialFault::kHangUp:
            hung_up_ = true;
            return std::nullopt;
        case SerialFault::kSwallow:
            return std::nullopt;
        case SerialFault::kGarble:
            return byte ^ std::byte{0x55};
        case SerialFault::kHangUpAfter:
            hangs_up_soon_ = true;
            break;
    }
    return byte;
}

}  // namespace cuts
