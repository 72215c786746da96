#include "tests/updater/mcuboot/pty_unit.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <optional>
#include <utility>

using namespace std::chrono_literals;

namespace {

constexpr auto kBound = 20s;

}  // namespace

PtyUnit::PtyUnit()
{
    std::array<char, 64> name{};
    termios raw{};
    cfmakeraw(&raw);
    if (openpty(&master_, &slave_, name.data(), &raw, nullptr) != 0 || pipe(wake_) != 0) {
        ADD_FAILURE() << "no pty";
        return;
    }
    port_name_ = QString::fromLatin1(name.data());
    thread_ = std::thread(&PtyUnit::Run, this);
}

PtyUnit::~PtyUnit()
{
    close(wake_[1]);
    if (thread_.joinable()) {
        thread_.join();
    }
    Close();
    close(wake_[0]);
}

QString PtyUnit::PortName() const
{
    return port_name_;
}

PtyUnit& PtyUnit::Then(Reaction reaction)
{
    std::scoped_lock const lock(mutex_);
    script_.push_back(std::move(reaction));
    return *this;
}

PtyUnit& PtyUnit::Answers(QByteArray const& raw)
{
    return Then({.pieces = {raw}});
}

PtyUnit& PtyUnit::AnswersInPieces(std::vector<QByteArray> pieces)
{
    return Then({.pieces = std::move(pieces)});
}

PtyUnit& PtyUnit::StaysSilent()
{
    return Then({});
}

PtyUnit& PtyUnit::Vanishes()
{
    return Then({.pieces = {}, .vanishes = true});
}

void PtyUnit::AlwaysAnswers(QByteArray const& raw)
{
    std::scoped_lock const lock(mutex_);
    after_script_ = {.pieces = {raw}};
}

void PtyUnit::Sends(QByteArray const& raw)
{
    Write(raw);
    EXPECT_TRUE(WaitUntilWaiting(true, kBound));
}

std::vector<QByteArray> PtyUnit::WaitForLines(size_t count)
{
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, kBound, [&] { return lines_.size() >= count; }))
        << lines_.size() << " lines of " << count;
    return lines_;
}

std::vector<mcuboot::test::Request> PtyUnit::WaitForRequests(size_t count)
{
    std::vector<mcuboot::test::Request> requests;
    for (auto const& line : WaitForLines(count)) {
        requests.push_back(mcuboot::test::ReadRequest(line).value_or(mcuboot::test::Request{}));
    }
    return requests;
}

std::vector<std::string> PtyUnit::Journal()
{
    std::vector<std::string> journal;
    for (auto const& request : WaitForRequests(0)) {
        journal.push_back(std::to_string(request.operation) + " " + std::to_string(request.group) +
                          " " + std::to_string(request.id) + " " +
                          std::to_string(request.sequence));
    }
    return journal;
}

void PtyUnit::Run()
{
    while (true) {
        std::array<pollfd, 2> descriptors{pollfd{wake_[0], POLLIN, 0}, pollfd{master_, POLLIN, 0}};
        poll(descriptors.data(), descriptors.size(), -1);
        if (descriptors[0].revents != 0 || !ReadInput()) {
            return;
        }
        for (auto end = input_.indexOf('\n'); end >= 0; end = input_.indexOf('\n')) {
            auto const line = input_.first(end + 1);
            input_.remove(0, end + 1);
            TakeLine(line);
        }
    }
}

bool PtyUnit::ReadInput()
{
    std::array<char, 4096> buffer;
    auto const size = read(master_, buffer.data(), buffer.size());
    if (size <= 0) {
        return false;
    }
    input_.append(buffer.data(), size);
    return true;
}

void PtyUnit::TakeLine(QByteArray const& line)
{
    EXPECT_TRUE(mcuboot::test::ReadRequest(line)) << line.toStdString();
    Reaction reaction;
    {
        std::scoped_lock const lock(mutex_);
        lines_.push_back(line);
        reaction = after_script_;
        if (!script_.empty()) {
            reaction = std::move(script_.front());
            script_.pop_front();
        }
    }
    changed_.notify_all();
    React(reaction);
}

void PtyUnit::React(Reaction const& reaction)
{
    if (reaction.vanishes) {
        Close();
        return;
    }
    for (auto const& piece : reaction.pieces) {
        if (!WaitUntilWaiting(false, kBound)) {
            return;
        }
        Write(piece);
        // Written bytes show at the other end only a moment later. One that was taken within that
        // moment is not waited for any longer.
        WaitUntilWaiting(true, 2ms);
    }
}

int PtyUnit::CountWaiting() const
{
    int waiting = 0;
    return ioctl(slave_, FIONREAD, &waiting) == 0 ? waiting : -1;
}

bool PtyUnit::WaitUntilWaiting(bool waiting, std::chrono::milliseconds bound) const
{
    auto const end = std::chrono::steady_clock::now() + bound;
    while ((CountWaiting() > 0) != waiting) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

void PtyUnit::Write(QByteArray const& raw) const
{
    auto rest = raw;
    while (!rest.isEmpty()) {
        auto const size = write(master_, rest.constData(), static_cast<size_t>(rest.size()));
        if (size <= 0) {
            ADD_FAILURE() << "the unit cannot write";
            return;
        }
        rest.remove(0, size);
    }
}

void PtyUnit::Close()
{
    for (auto* const descriptor : {&master_, &slave_}) {
        if (*descriptor >= 0) {
            close(std::exchange(*descriptor, -1));
        }
    }
}
