// Listeners that keep what they heard, for the tests of the bus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "runtime/i_dispatcher.h"

class RecordingListener : public IListener {
public:
    void OnMessage(std::span<std::byte const> message) override
    {
        std::vector<uint8_t> bytes;
        for (auto const byte : message) {
            bytes.push_back(std::to_integer<uint8_t>(byte));
        }
        heard.push_back(std::move(bytes));
    }

    std::vector<std::vector<uint8_t>> heard;
};

class RecordingFastListener : public IFastListener {
public:
    void OnFastMessage(Receiver sender, std::span<std::byte const, 2> message) override
    {
        heard.push_back(
            {sender, std::to_integer<uint8_t>(message[0]), std::to_integer<uint8_t>(message[1])});
    }

    // Sender, then the two bytes.
    std::vector<std::vector<uint8_t>> heard;
};

using MessageList = std::vector<std::pair<SubsystemId, MessageId>>;

// The bytes as a message; the vector that it came from must stay.
inline std::span<std::byte const> AsMessage(std::span<uint8_t const> bytes)
{
    return std::as_bytes(bytes);
}
