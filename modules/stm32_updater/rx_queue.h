// Received bytes on their way from the serial thread to the protocol thread: a lock-free ring for
// one producer and one consumer.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "modules/stm32_updater/limits.h"

namespace stm32_updater {

class RxQueue {
public:
    // One slot always stays empty, which distinguishes a full ring from an empty one.
    static constexpr uint32_t kSlots = kRxCapacity + 1;

    // Producer only. Drops the byte when the ring is full.
    void Push(std::byte value)
    {
        auto const write = write_index_.load(std::memory_order_relaxed);
        auto const next = Next(write);
        if (next == read_index_.load(std::memory_order_acquire)) {
            return;
        }
        slots_[write] = value;
        write_index_.store(next, std::memory_order_seq_cst);
    }

    // Consumer only. Nothing when no byte waits.
    std::optional<std::byte> Pop()
    {
        auto const read = read_index_.load(std::memory_order_relaxed);
        if (read == write_index_.load(std::memory_order_acquire)) {
            return std::nullopt;
        }
        auto const value = slots_[read];
        read_index_.store(Next(read), std::memory_order_release);
        return value;
    }

    // Consumer only. Drops the bytes that wait now.
    void Clear()
    {
        read_index_.store(write_index_.load(std::memory_order_acquire), std::memory_order_release);
    }

private:
    static constexpr uint32_t Next(uint32_t index) { return index + 1 == kSlots ? 0 : index + 1; }

    std::array<std::byte, kSlots> slots_{};
    std::atomic<uint32_t> write_index_{0};
    std::atomic<uint32_t> read_index_{0};
};

}  // namespace stm32_updater
