#include "simulator/bootloaders/replayed_unit.h"

#include <fmt/format.h>

#include <QByteArray>
#include <algorithm>
#include <stdexcept>
#include <utility>

#include "simulator/bootloaders/smp_line.h"

namespace simulator {
namespace {

constexpr auto kNewline = std::byte{'\n'};
constexpr size_t kLongestLine = 65536;  // far above any

QByteArray ToArray(std::vector<std::byte> const& bytes)
{
    return {reinterpret_cast<char const*>(bytes.data()), static_cast<qsizetype>(bytes.size())};
}

// The message of a line without its sequence number and check value; the line itself when it holds
// no message.
QByteArray GetComparablePart(std::vector<std::byte> const& bytes)
{
    auto const line = ToArray(bytes).chopped(1);  // the newline
    auto message = ReadSmpRequest(line).message;
    if (!message) {
        return line;
    }
    message->sequence = 0;
    return MakeSmpRequest(*message);
}

bool IsSameLine(std::vector<std::byte> const& a, std::vector<std::byte> const& b)
{
    return GetComparablePart(a) == GetComparablePart(b);
}

std::string FormatByte(QByteArray const& bytes, qsizetype index)
{
    return index < bytes.size() ? fmt::format("0x{:02x}", static_cast<uint8_t>(bytes[index]))
                                : "nothing";
}

}  // namespace

ReplayedUnit::ReplayedUnit(ReplayedUnitOptions options)
    : SerialBootloader(std::span<FaultKind const>()),
      has_smp_lines_(options.has_smp_lines),
      speed_(options.speed)
{
    std::chrono::nanoseconds last{0};
    for (auto const& packet : options.packets) {
        if (!packet.from_unit) {
            AddToRequests(packet);
        } else if (!requests_.empty()) {
            auto const delay =
                std::chrono::duration_cast<std::chrono::microseconds>(packet.time - last);
            requests_.back().answers.push_back({packet.bytes, delay});
        }
        last = packet.time;
    }
    if (has_smp_lines_ && !requests_.empty() && requests_.back().bytes.back() != kNewline) {
        requests_.pop_back();  // the record was cut
    }
    if (requests_.empty()) {
        throw std::invalid_argument("nothing was sent to the recorded unit");
    }
}

void ReplayedUnit::AddToRequests(ReplayedPacket const& packet)
{
    for (auto const byte : packet.bytes) {
        bool const begins = requests_.empty() || !requests_.back().answers.empty() ||
                            (has_smp_lines_ && requests_.back().bytes.back() == kNewline);
        if (begins) {
            requests_.emplace_back();
        }
        requests_.back().bytes.push_back(byte);
        requests_.back().numbers.push_back(packet.number);
    }
}

void ReplayedUnit::Reset()
{
    SerialBootloader::Reset();
    next_ = 0;
    received_.clear();
}

UnitStatus ReplayedUnit::Status() const
{
    UnitStatus status;
    if (next_ > 0) {
        status.state = UnitState::kSynchronised;
    }
    status.connects = begins_;
    return status;
}

void ReplayedUnit::Take(std::byte byte)
{
    received_.push_back(byte);
    if (!has_smp_lines_) {
        TakeByte();
    } else if (byte == kNewline || received_.size() > kLongestLine) {
        TakeLine();
    }
}

void ReplayedUnit::TakeByte()
{
    auto const place = received_.size() - 1;
    auto const is_expected = [&] {
        return next_ < requests_.size() && received_.back() == requests_[next_].bytes[place];
    };
    if (place == 0 && !is_expected() && received_.back() == requests_.front().bytes.front()) {
        BeginAgain();
    }
    if (!is_expected()) {
        ReportDifference();
    } else if (received_.size() == requests_[next_].bytes.size()) {
        FinishRequest();
    }
}

void ReplayedUnit::TakeLine()
{
    auto const is_expected = [&] {
        return next_ < requests_.size() && IsSameLine(received_, requests_[next_].bytes);
    };
    if (!is_expected() && IsSameLine(received_, requests_.front().bytes)) {
        BeginAgain();
    }
    if (!is_expected()) {
        ReportDifference();
    } else {
        FinishRequest();
    }
}

void ReplayedUnit::BeginAgain()
{
    next_ = 0;
    entry_.command = "begin-again";
    Finish(Outcome::kAck);
}

void ReplayedUnit::FinishRequest()
{
    auto const& request = requests_[next_];
    begins_ += next_ == 0 ? 1 : 0;
    entry_.command = "request";
    entry_.size = received_.size();
    Finish(Outcome::kAck);
    received_.clear();
    ++next_;
    bool is_first = true;
    for (auto const& answer : request.answers) {
        auto const busy =
            speed_ == 0 ? std::chrono::microseconds{0} : answer.delay / static_cast<int>(speed_);
        Send(answer.bytes, busy, {}, std::exchange(is_first, false));
    }
    if (next_ == requests_.size()) {
        entry_.command = "complete";
        Finish(Outcome::kAck);
    }
}

void ReplayedUnit::ReportDifference()
{
    entry_.command = "difference";
    if (next_ == requests_.size()) {
        return Hang(fmt::format("after the last packet: nothing expected, 0x{:02x} received",
                                std::to_integer<unsigned>(received_.front())));
    }
    Hang(has_smp_lines_ ? DescribeDifferentLine() : DescribeDifferentByte());
}

std::string ReplayedUnit::DescribeDifferentByte() const
{
    auto const& [bytes, numbers, answers] = requests_[next_];
    auto const place = received_.size() - 1;
    auto const packet = std::ranges::equal_range(numbers, numbers[place]);
    return fmt::format(
        "packet {}, byte {} of {}: 0x{:02x} expected, 0x{:02x} received", numbers[place],
        numbers.begin() + static_cast<ptrdiff_t>(place) - packet.begin() + 1, packet.size(),
        std::to_integer<unsigned>(bytes[place]), std::to_integer<unsigned>(received_.back()));
}

std::string ReplayedUnit::DescribeDifferentLine() const
{
    auto const& request = requests_[next_];
    auto const expected = GetComparablePart(request.bytes);
    auto const received = GetComparablePart(received_);
    auto const place = std::ranges::mismatch(expected, received).in1 - expected.begin();
    return fmt::format("packet {}, byte {} of {} in its message: {} expected, {} received",
                       request.numbers.front(), place + 1, expected.size(),
                       FormatByte(expected, place), FormatByte(received, place));
}

}  // namespace simulator
