#include "tests/cuts/virtual_wire.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

namespace cuts {
namespace {

using namespace std::chrono_literals;

// A USB bridge hands over what the line brought in packets of at most this size (full speed, bulk).
constexpr size_t kUsbPacketSize = 64;

// How close to a limit a stalled byte comes.
constexpr Time kNearness = 1us;

// Far more waits than any session needs. A host that waits more often waits for ever.
constexpr size_t kEndlessWaits = 1'000'000;

constexpr std::array kFaultNames{"cut",          "swallow",     "flip",        "replace",
                                 "extra-before", "extra-after", "stall-below", "stall-above"};

// Those of one direction by their position, in their order.
std::vector<WireFault> Select(std::vector<WireFault> const& faults, Direction direction)
{
    std::vector<WireFault> selected;
    for (auto const& fault : faults) {
        if (fault.direction == direction) {
            selected.insert(
                std::ranges::upper_bound(selected, fault.position, {}, &WireFault::position),
                fault);
        }
    }
    return selected;
}

}  // namespace

std::string ToText(WireFault const& fault)
{
    return fmt::format("{} {} {} 0x{:02x}", kFaultNames.at(static_cast<size_t>(fault.kind)),
                       fault.direction == Direction::kToUnit ? "to-unit" : "to-host",
                       fault.position, std::to_integer<unsigned>(fault.value));
}

VirtualWire::VirtualWire(simulator::SerialBootloader& unit, unsigned baud, unsigned bits_per_byte,
                         std::vector<WireFault> faults)
    : unit_(unit),
      byte_time_(Time(1s) * bits_per_byte / baud),
      to_unit_{Select(faults, Direction::kToUnit)},
      to_host_{Select(faults, Direction::kToHost)}
{
    for (auto const& answer : unit_.TakeUnasked()) {
        Queue(packet_end_ + answer.busy, answer.bytes);
    }
}

size_t VirtualWire::Lane::CountSound(size_t size) const
{
    return next_fault == faults.size() ? size
                                       : std::min(size, faults[next_fault].position - passed);
}

VirtualWire::Spoilt VirtualWire::Lane::Spoil(std::byte byte)
{
    auto const sent = byte;
    bool is_lost = false;
    Spoilt spoilt;
    std::vector<std::byte> after;
    for (; next_fault < faults.size() && faults[next_fault].position == passed; ++next_fault) {
        auto const& fault = faults[next_fault];
        switch (fault.kind) {
            case WireFaultKind::kCut:
                spoilt.is_cut = true;
                break;
            case WireFaultKind::kSwallow:
                is_lost = true;
                break;
            case WireFaultKind::kFlip:
                byte ^= fault.value;
                break;
            case WireFaultKind::kReplace:
                byte = fault.value;
                break;
            case WireFaultKind::kExtraBefore:
                spoilt.bytes.push_back(fault.value);
                break;
            case WireFaultKind::kExtraAfter:
                after.push_back(fault.value);
                break;
            case WireFaultKind::kStallBelow:
                spoilt.hold = Hold::kBelow;
                break;
            case WireFaultKind::kStallAbove:
                spoilt.hold = Hold::kAbove;
                break;
        }
    }
    ++passed;
    if (spoilt.is_cut) {
        spoilt.bytes.clear();
        return spoilt;
    }
    spoilt.forged = spoilt.bytes;
    spoilt.forged.insert(spoilt.forged.end(), after.begin(), after.end());
    if (!is_lost) {
        spoilt.bytes.push_back(byte);
        if (byte != sent) {
            spoilt.forged.push_back(byte);
        }
    }
    spoilt.bytes.insert(spoilt.bytes.end(), after.begin(), after.end());
    return spoilt;
}

void VirtualWire::Send(std::span<std::byte const> bytes)
{
    Trace(Direction::kToUnit, bytes);
    auto const first_fault = to_unit_.next_fault;
    while (!bytes.empty()) {
        auto const sound = bytes.first(to_unit_.CountSound(bytes.size()));
        to_unit_.passed += sound.size();
        HandToUnit(sound);
        bytes = bytes.subspan(sound.size());
        if (!bytes.empty()) {
            auto const spoilt = to_unit_.Spoil(bytes.front());
            is_dead_ = is_dead_ || spoilt.is_cut;
            hold_next_ = std::max(hold_next_, spoilt.hold);
            HandToUnit(spoilt.bytes);
            bytes = bytes.subspan(1);
        }
    }
    auto const count = to_unit_.next_fault - first_fault;
    notes_.most_faults_together = std::max(notes_.most_faults_together, count + faults_before_);
    faults_before_ = count;
}

void VirtualWire::HandToUnit(std::span<std::byte const> bytes)
{
    if (is_dead_ || bytes.empty()) {
        return;
    }
    auto const start = std::max(now_, sent_to_unit_);
    sent_to_unit_ = start + GetWireTime(bytes.size());
    auto const lost = std::min(bytes.size(), CountBytesBefore(deaf_until_ - start));
    auto const heard_from = start + GetWireTime(lost);
    for (auto const& answer : unit_.Receive(bytes.subspan(lost))) {
        auto const asked = heard_from + GetWireTime(answer.consumed);
        auto const begin = std::max(asked, packet_end_) + answer.busy;
        if (unit_.IsDeafWhileBusy()) {
            deaf_until_ = begin;
        }
        Queue(begin, answer.bytes);
    }
    is_dead_ = is_dead_ || unit_.HasLeft();
}

// How many bytes the line brings before this time has passed.
size_t VirtualWire::CountBytesBefore(Time time) const
{
    return time <= Time{0} ? 0 : static_cast<size_t>((time - 1ns) / byte_time_);
}

void VirtualWire::Queue(Time earliest, std::span<std::byte const> bytes)
{
    packet_end_ = std::max(packet_end_, earliest);
    packet_.hold = std::exchange(hold_next_, Hold::kNone);
    while (!bytes.empty() && !is_dead_) {
        auto const sound = bytes.first(to_host_.CountSound(bytes.size()));
        to_host_.passed += sound.size();
        std::ranges::for_each(sound, [this](std::byte byte) { Append(byte); });
        bytes = bytes.subspan(sound.size());
        if (!bytes.empty()) {
            auto const spoilt = to_host_.Spoil(bytes.front());
            is_dead_ = spoilt.is_cut;
            notes_.forged.insert(notes_.forged.end(), spoilt.forged.begin(), spoilt.forged.end());
            if (spoilt.hold != Hold::kNone) {
                EndPacket();
                packet_.hold = spoilt.hold;
            }
            std::ranges::for_each(spoilt.bytes, [this](std::byte byte) { Append(byte); });
            bytes = bytes.subspan(1);
        }
    }
    EndPacket();
}

void VirtualWire::Append(std::byte byte)
{
    packet_.bytes.push_back(byte);
    packet_end_ += byte_time_;
    if (packet_.bytes.size() == kUsbPacketSize) {
        EndPacket();
    }
}

void VirtualWire::EndPacket()
{
    packet_.at = packet_end_;
    auto packet = std::exchange(packet_, {});
    if (!packet.bytes.empty()) {
        packets_.push_back(std::move(packet));
    }
}

std::vector<std::byte> VirtualWire::TakeArrived()
{
    std::vector<std::byte> bytes;
    while (!packets_.empty() && packets_.front().hold == Hold::kNone &&
           packets_.front().at <= now_) {
        auto const& packet = packets_.front().bytes;
        bytes.insert(bytes.end(), packet.begin(), packet.end());
        packets_.pop_front();
    }
    Trace(Direction::kToHost, bytes);
    return bytes;
}

std::vector<std::byte> VirtualWire::Receive(Time limit, Chance chance)
{
    if (++waits_ > kEndlessWaits) {
        // The host is in an endless loop, which nothing else would end.
        std::abort();
    }
    auto const start = now_;
    auto bytes = Await(start + limit, chance);
    notes_.longest_wait = std::max(notes_.longest_wait, now_ - start);
    return bytes;
}

std::vector<std::byte> VirtualWire::Await(Time end, Chance chance)
{
    bool const is_held = !packets_.empty() && packets_.front().hold != Hold::kNone;
    if (is_held && chance == Chance::kLast) {
        return TakeHeld(end);
    }
    if (is_held || packets_.empty()) {
        now_ = end;
        return {};
    }
    now_ = std::clamp(packets_.front().at, now_, end);
    return TakeArrived();
}

// Everything that is on its way comes with the first held byte.
std::vector<std::byte> VirtualWire::TakeHeld(Time end)
{
    auto const hold = packets_.front().hold;
    // Not before the unit has sent it.
    now_ = hold == Hold::kBelow ? std::clamp(packets_.front().at, end - kNearness, end) : end;
    bool is_held = true;
    for (auto& packet : packets_) {
        if (!is_held && packet.hold != Hold::kNone) {
            break;
        }
        is_held = false;
        packet.hold = Hold::kNone;
        if (hold == Hold::kAbove) {
            packet.at = std::max(packet.at, end + kNearness);
        }
    }
    return TakeArrived();
}

WireNotes VirtualWire::Notes() const
{
    auto notes = notes_;
    notes.bytes = CountBytes();
    notes.time = now_;
    return notes;
}

void VirtualWire::Trace(Direction direction, std::span<std::byte const> bytes)
{
    // FNV-1a.
    auto const add = [this](uint64_t value) {
        notes_.trace_hash = (notes_.trace_hash ^ value) * 0x100000001B3;
    };
    if (bytes.empty()) {
        return;
    }
    add(static_cast<uint64_t>(direction));
    add(static_cast<uint64_t>(now_.count()));
    for (auto const byte : bytes) {
        add(std::to_integer<uint64_t>(byte));
    }
}

}  // namespace cuts
