#include "simulator/host/serial_connection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <future>
#include <system_error>
#include <utility>

namespace simulator {
namespace {

// A USB bridge hands over what the line brought in packets of at most this size (full speed, bulk).
constexpr size_t kUsbPacketSize = 64;

timespec ToTimespec(LinePacer::Clock::duration duration)
{
    auto const nanoseconds = std::max(duration, LinePacer::Clock::duration::zero());
    auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(nanoseconds);
    return {static_cast<time_t>(seconds.count()),
            static_cast<long>(std::chrono::nanoseconds(nanoseconds - seconds).count())};
}

}  // namespace

SerialConnection::SerialConnection(std::shared_ptr<UsbTestbed> testbed,
                                   UsbSerialPortOptions options, SerialBootloader& bootloader,
                                   LinePacer pacer)
    : port_(std::move(testbed), std::move(options)),
      bootloader_(bootloader),
      pacer_(pacer),
      wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    if (wake_ < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    thread_ = std::thread([this] { Run(); });
}

SerialConnection::~SerialConnection()
{
    stop_ = true;
    Wake();
    thread_.join();
    close(wake_);
}

void SerialConnection::Execute(std::function<void()> const& task)
{
    std::packaged_task<void()> packaged(task);
    auto done = packaged.get_future();
    {
        std::lock_guard const lock(tasks_mutex_);
        tasks_.emplace_back([&packaged] { packaged(); });
    }
    Wake();
    done.get();
}

void SerialConnection::Plug(std::string const& name)
{
    port_.Plug(name);
    DropPending();
    transit_ = pacer_.IsPaced() ? port_.MeasureTransit() : LineTransit{};
}

void SerialConnection::Unplug()
{
    DropPending();
    port_.Unplug();
}

void SerialConnection::Fade()
{
    DropPending();
    port_.Fade();
}

void SerialConnection::DropPending()
{
    pending_.clear();
    lateness_ = {};
    deaf_until_ = {};
}

void SerialConnection::Run()
{
    UseFineTimers();
    while (!stop_) {
        WaitForWork();
        RunTasks();
        ReadLine();
        SendDue();
    }
}

// Returns when there is something to read or a task, or when the next answer is due.
void SerialConnection::WaitForWork()
{
    std::array<pollfd, 2> fds{pollfd{wake_, POLLIN, 0}, pollfd{port_.LineFd(), POLLIN, 0}};
    if (pending_.empty()) {
        ppoll(fds.data(), fds.size(), nullptr, nullptr);
        return;
    }
    auto const due = pending_.front().due;
    auto const sleep = due - kSpinTime - LinePacer::Clock::now();
    auto const timeout = ToTimespec(sleep);
    if (ppoll(fds.data(), fds.size(), &timeout, nullptr) == 0) {
        WaitUntil(due);
    }
}

void SerialConnection::RunTasks()
{
    uint64_t count = 0;
    if (read(wake_, &count, sizeof(count)) < 0) {
        return;
    }
    std::vector<std::function<void()>> tasks;
    {
        std::lock_guard const lock(tasks_mutex_);
        tasks.swap(tasks_);
    }
    for (auto const& task : tasks) {
        task();
    }
    // A task may have reset the unit.
    Schedule(bootloader_.TakeUnasked(), LinePacer::Clock::now());
}

void SerialConnection::ReadLine()
{
    std::array<std::byte, 4096> buffer;
    auto const count = read(port_.LineFd(), buffer.data(), buffer.size());
    if (count <= 0) {
        return;
    }
    auto const bytes = std::span(buffer).first(static_cast<size_t>(count));
    auto const arrival = ArrivalAt(LinePacer::Clock::now());
    pacer_.Receive(arrival, bytes.size());
    if (arrival < deaf_until_) {
        return;
    }
    auto const begun = Schedule(bootloader_.Receive(bytes));
    if (bootloader_.IsDeafWhileBusy()) {
        deaf_until_ = begun;
    }
    if (bootloader_.HasLeft()) {
        Unplug();
    }
}

// When bytes read at `now` would have left a real line. The time through the pseudo-terminal is
// subtracted, and so is the lateness of the answer that the client had waited for, but the result
// is not before the end of that answer.
LinePacer::TimePoint SerialConnection::ArrivalAt(LinePacer::TimePoint now) const
{
    return std::max(now - transit_.to_unit - lateness_, std::min(now, pacer_.SentAt()));
}

LinePacer::TimePoint SerialConnection::Schedule(std::vector<Answer> const& answers,
                                                LinePacer::TimePoint start)
{
    for (auto const& [bytes, busy, consumed, hurries_earlier] : answers) {
        if (hurries_earlier) {
            HurryPending();
        }
        start = std::max({start, pacer_.ReceivedAt(consumed), pacer_.SentAt()}) + busy;
        for (size_t offset = 0; offset < bytes.size(); offset += kUsbPacketSize) {
            auto const packet =
                std::span(bytes).subspan(offset, std::min(kUsbPacketSize, bytes.size() - offset));
            auto const over = pacer_.Send(start, packet.size());
            pending_.push_back({over - transit_.to_client, {packet.begin(), packet.end()}});
        }
    }
    return start;
}

void SerialConnection::HurryPending()
{
    auto const now = LinePacer::Clock::now();
    for (auto& pending : pending_) {
        pending.due = std::min(pending.due, now);
    }
    pacer_.ForgetSent(now);
}

void SerialConnection::SendDue()
{
    auto const now = LinePacer::Clock::now();
    while (!pending_.empty() && pending_.front().due <= now) {
        auto const [due, bytes] = std::move(pending_.front());
        pending_.pop_front();
        lateness_ = pacer_.IsPaced() ? now - due : LinePacer::Clock::duration{0};
        // What a client leaves unread until the line is full is lost, as in a bridge's own buffer.
        [[maybe_unused]] auto const written = write(port_.LineFd(), bytes.data(), bytes.size());
    }
}

void SerialConnection::Wake() const
{
    uint64_t const one = 1;
    [[maybe_unused]] auto const written = write(wake_, &one, sizeof(one));
}

}  // namespace simulator
