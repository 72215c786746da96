// Hands out the ids of dispatcher endpoints.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>

#include "runtime/message.h"

// Thread-safe. 235 ids are free at first: 0 means no endpoint, and 19, 200 and 238 to 255 belong to
// endpoints that are fixed in the device firmware (238 is the log's sender).
class DispatcherEndpointIdAllocator {
public:
    DispatcherEndpointIdAllocator() : DispatcherEndpointIdAllocator(0) {}

    // Keeps the ids below `reserved_ids` for endpoints that choose their own.
    explicit DispatcherEndpointIdAllocator(unsigned char reserved_ids);

    // The lowest free id. Throws std::bad_optional_access when all are taken.
    Receiver GetNextDispatcherEndpointId();

    // The same; empty when all are taken.
    std::optional<Receiver> TryGetNextDispatcherEndpointId();

    // Frees `id`, whoever took it, even if it is a reserved one.
    void ReturnDispatcherEndpointId(Receiver id);

private:
    static constexpr size_t kIds = 256;

    bool IsTaken(size_t id) const { return (taken_[id >> 3] & Bit(id)) != std::byte{0}; }
    void Take(size_t id) { taken_[id >> 3] |= Bit(id); }
    static std::byte Bit(size_t id) { return std::byte{1} << (id & 7); }

    std::array<std::byte, kIds / 8> taken_{};
    std::mutex mutex_;
};
