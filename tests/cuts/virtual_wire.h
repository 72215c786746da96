// A serial line in virtual time, with faults at chosen bytes: it joins a host and a simulated
// bootloader in one thread, without a port and without waiting. The host's adapters to it are
// virtual_uart.h and virtual_line.h.
//
// Time passes only where the host waits. The unit works on what it receives at once, and its
// answers arrive when the line's speed and the unit's own times allow, in packets as from a USB
// bridge. A unit that is deaf while it is busy loses what arrives before its answer begins.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "simulator/bootloaders/serial_bootloader.h"

namespace cuts {

using Time = std::chrono::nanoseconds;

enum class Direction { kToUnit, kToHost };

enum class WireFaultKind {
    kCut,          // this byte and all later ones, in both directions, are lost
    kSwallow,      // this byte is lost
    kFlip,         // this byte is XORed with `value`
    kReplace,      // this byte becomes `value`
    kExtraBefore,  // `value` comes in front of this byte
    kExtraAfter,   // ... or behind it
    // This byte and what follows it arrive together, just before the host's wait would end, or just
    // after it has ended. Towards the unit: the answer does.
    kStallBelow,
    kStallAbove,
};

// Whether the fault changes which bytes arrive, and not only when or how many of them.
constexpr bool DamagesBytes(WireFaultKind kind)
{
    return kind != WireFaultKind::kCut && kind != WireFaultKind::kStallBelow &&
           kind != WireFaultKind::kStallAbove;
}

struct WireFault {
    WireFaultKind kind;
    Direction direction;
    size_t position;  // of the byte among those that its sender sends on this line, from 0
    std::byte value{};
};

// "cut to-unit 17", "flip to-host 3 0x01"
std::string ToText(WireFault const& fault);

// Whether the host would still wait for these bytes if they came later.
enum class Chance { kLater, kLast };

// What a wire notes of a session.
struct WireNotes {
    std::array<size_t, 2> bytes{};  // that either side has sent, by direction
    Time time{0};
    Time longest_wait{0};
    // What the host received and the unit had not sent.
    std::vector<std::byte> forged;
    // The most faults towards the unit in two neighbouring messages of the host.
    size_t most_faults_together = 0;
    // Depends on every byte that the host sent or received, and when.
    uint64_t trace_hash = 0xCBF29CE484222325;
};

class VirtualWire {
public:
    // `unit` must outlive the wire. Several faults may be at one byte; they act in their order.
    // Takes what the unit sends unasked, as after a reset; its times count from now.
    VirtualWire(simulator::SerialBootloader& unit, unsigned baud, unsigned bits_per_byte,
                std::vector<WireFault> faults = {});

    Time Now() const { return now_; }
    // Lets time pass. What arrives meanwhile waits for the next TakeArrived() or Receive().
    void Pass(Time time) { now_ += time; }

    // Takes no time for the host.
    void Send(std::span<std::byte const> bytes);

    std::vector<std::byte> TakeArrived();

    // Waits up to `limit` and returns as soon as bytes have arrived: all that have by then. With
    // kLater, bytes that are stalled stay so; with kLast they come just before or after the limit.
    std::vector<std::byte> Receive(Time limit, Chance chance);

    // How many bytes either side has sent, by direction.
    std::array<size_t, 2> CountBytes() const { return {to_unit_.passed, to_host_.passed}; }
    WireNotes Notes() const;

private:
    enum class Hold { kNone, kBelow, kAbove };

    struct Packet {
        Time at{0};
        Hold hold = Hold::kNone;
        std::vector<std::byte> bytes{};
    };

    // What becomes of one byte.
    struct Spoilt {
        std::vector<std::byte> bytes;
        std::vector<std::byte> forged;
        Hold hold = Hold::kNone;
        bool is_cut = false;
    };

    struct Lane {
        std::vector<WireFault> faults;  // by their position
        size_t next_fault = 0;
        size_t passed = 0;  // bytes

        // How many of the next `size` bytes come before the next fault.
        size_t CountSound(size_t size) const;
        Spoilt Spoil(std::byte byte);
    };

    Time GetWireTime(size_t bytes) const { return byte_time_ * static_cast<int64_t>(bytes); }
    size_t CountBytesBefore(Time time) const;
    void HandToUnit(std::span<std::byte const> bytes);
    void Queue(Time earliest, std::span<std::byte const> bytes);
    void Append(std::byte byte);
    void EndPacket();
    std::vector<std::byte> Await(Time end, Chance chance);
    std::vector<std::byte> TakeHeld(Time end);
    void Trace(Direction direction, std::span<std::byte const> bytes);

    simulator::SerialBootloader& unit_;
    Time byte_time_;
    Lane to_unit_;
    Lane to_host_;
    bool is_dead_ = false;
    Time now_{0};
    Time sent_to_unit_{0};          // when the last byte reaches the unit
    Time deaf_until_{0};            // until then, the unit loses what arrives
    Hold hold_next_ = Hold::kNone;  // for the next packet
    Packet packet_;                 // being filled
    Time packet_end_{0};            // when its last byte reaches the host
    std::deque<Packet> packets_;    // on their way to the host, in their order
    size_t waits_ = 0;
    size_t faults_before_ = 0;  // in the message before
    WireNotes notes_;
};

}  // namespace cuts
