#include "simulator/bootloaders/serial_bootloader.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace simulator {
namespace {

std::vector<std::byte> ToBytes(std::string_view text)
{
    std::vector<std::byte> bytes(text.size());
    std::ranges::transform(text, bytes.begin(), [](char c) { return static_cast<std::byte>(c); });
    return bytes;
}

// Applies a fault to an answer.
void Spoil(Answer& answer, Fault const& fault)
{
    auto& bytes = answer.bytes;
    auto const value = static_cast<std::byte>(fault.parameter & 0xFF);
    auto const line = ToBytes(kForeignLine);
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
    auto answers = TakeUnasked();
    for (auto const byte : bytes) {
        ++consumed_;
        if (!HearsNothing() && !IsLosing()) {
            Take(byte);
        }
    }
    std::ranges::move(TakeUnasked(), std::back_inserter(answers));
    return answers;
}

std::vector<Answer> SerialBootloader::TakeUnasked()
{
    consumed_ = 0;
    return std::exchange(answers_, {});
}

// Whether an answer to an earlier byte of the piece keeps the unit busy.
bool SerialBootloader::IsLosing() const
{
    return is_deaf_while_busy_ && std::ranges::any_of(answers_, [](auto const& answer) {
               return answer.busy.count() > 0;
           });
}

void SerialBootloader::Send(std::vector<std::byte> bytes, std::chrono::microseconds busy,
                            std::chrono::microseconds line_pause, bool hurries_earlier)
{
    Answer answer{std::move(bytes), busy, consumed_, hurries_earlier};
    for (auto const& fault : Faults().Strike(FaultMoment::kAnswer)) {
        Spoil(answer, fault);
    }
    Queue(std::move(answer), line_pause);
}

void SerialBootloader::Print(std::string_view text, std::chrono::microseconds busy)
{
    Queue({ToBytes(text), busy, consumed_}, {});
}

void SerialBootloader::Queue(Answer answer, std::chrono::microseconds line_pause)
{
    auto const newline = static_cast<std::byte>('\n');
    while (line_pause.count() > 0) {
        auto const end = std::ranges::find(answer.bytes, newline);
        if (answer.bytes.end() - end <= 1) {
            break;
        }
        answers_.push_back({{answer.bytes.begin(), end + 1}, answer.busy, answer.consumed});
        answer = {{end + 1, answer.bytes.end()}, line_pause, answer.consumed};
    }
    if (!answer.bytes.empty()) {
        answers_.push_back(std::move(answer));
    }
}

}  // namespace simulator
