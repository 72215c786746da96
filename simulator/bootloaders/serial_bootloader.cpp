#include "simulator/bootloaders/serial_bootloader.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace simulator {
namespace {

// A line that other software on the unit may print.
std::vector<std::byte> MakeForeignLine()
{
    constexpr std::string_view kText = "[00:00:01.250] flash: 2 areas\r\n";
    std::vector<std::byte> line(kText.size());
    std::ranges::transform(kText, line.begin(), [](char c) { return static_cast<std::byte>(c); });
    return line;
}

// Applies a fault to an answer.
void Spoil(Answer& answer, Fault const& fault)
{
    auto& bytes = answer.bytes;
    auto const value = static_cast<std::byte>(fault.parameter & 0xFF);
    auto const line = MakeForeignLine();
    if (fault.kind == FaultKind::kDropAnswer) {
        bytes.clear();
    } else if (fault.kind == FaultKind::kGarbageAnswer && !bytes.empty()) {
        bytes.front() = value;
    } else if (fault.kind == FaultKind::kCutAnswer) {
        bytes.resize(std::min<size_t>(bytes.size(), fault.parameter));
    } else if (fault.kind == FaultKind::kExtraByte) {
        bytes.push_back(value);
    } else if (fault.kind == FaultKind::kLateAnswer) {
        answer.busy += std::chrono::milliseconds(fault.parameter);
    } else if (fault.kind == FaultKind::kForeignLineBefore) {
        bytes.insert(bytes.begin(), line.begin(), line.end());
    } else if (fault.kind == FaultKind::kForeignLineAfter) {
        bytes.insert(bytes.end(), line.begin(), line.end());
    }
}

}  // namespace

std::vector<std::byte> JoinAnswers(std::span<Answer const> answers)
{
    std::vector<std::byte> bytes;
    for (auto const& answer : answers) {
        bytes.insert(bytes.end(), answer.bytes.begin(), answer.bytes.end());
    }
    return bytes;
}

std::vector<Answer> SerialBootloader::Receive(std::span<std::byte const> bytes)
{
    consumed_ = 0;
    for (auto const byte : bytes) {
        ++consumed_;
        if (!HearsNothing()) {
            Take(byte);
        }
    }
    return std::exchange(answers_, {});
}

void SerialBootloader::Send(std::vector<std::byte> bytes, std::chrono::microseconds busy,
                            bool hurries_earlier)
{
    Answer answer{std::move(bytes), busy, consumed_, hurries_earlier};
    for (auto const& fault : Faults().Strike(FaultMoment::kAnswer)) {
        Spoil(answer, fault);
    }
    if (!answer.bytes.empty()) {
        answers_.push_back(std::move(answer));
    }
}

}  // namespace simulator
