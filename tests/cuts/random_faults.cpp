#include "tests/cuts/random_faults.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace cuts {
namespace {

constexpr size_t kMostFaults = 6;
constexpr size_t kLongestNoise = 100;
// Repeated blocks make a session longer than one without faults.
constexpr size_t kBehind = 20;

std::byte MakeValue(Random& random, std::span<std::byte const> telling)
{
    return random.OneIn(2) ? random.Pick(telling) : static_cast<std::byte>(random.Below(256));
}

// `start`: the part of the session, in thousandths, before which nothing happens.
void AddWireFaults(Random& random, std::array<size_t, 2> bytes, size_t start,
                   std::span<std::byte const> telling, std::vector<WireFault>& faults)
{
    using enum WireFaultKind;
    // A cut or a late answer ends most sessions, so they are rarer than the others.
    static constexpr std::array kKinds{kSwallow,     kSwallow,     kFlip,       kFlip,
                                       kFlip,        kReplace,     kReplace,    kExtraBefore,
                                       kExtraBefore, kExtraBefore, kExtraAfter, kExtraAfter,
                                       kCut,         kStallBelow,  kStallBelow, kStallAbove};
    WireFault fault{};
    fault.kind = random.Pick(kKinds);
    fault.direction = random.OneIn(2) ? Direction::kToUnit : Direction::kToHost;
    auto const size = bytes.at(static_cast<size_t>(fault.direction));
    auto const first = size * start / 1000;
    fault.position = first + random.Below(size - first + kBehind);
    bool const is_noise = fault.kind == kExtraBefore && random.OneIn(3);
    auto const repeats = is_noise ? 1 + random.Below(kLongestNoise) : 1;
    for (size_t i = 0; i < repeats; ++i) {
        fault.value = MakeValue(random, telling);
        faults.push_back(fault);
    }
}

simulator::Fault MakeUnitFault(Random& random, VirtualTransport const& transport)
{
    simulator::Fault fault{random.Pick(transport.unit_faults)};
    fault.at = 1 + random.Below(40U);
    fault.count = 1 + (random.OneIn(2) ? 0 : random.Below(14U));
    // Milliseconds, sizes, offsets, bytes: all of these are of this size.
    fault.parameter = random.OneIn(2) ? std::to_integer<uint32_t>(random.Pick(transport.telling))
                                      : random.Below(uint32_t{8000});
    return fault;
}

}  // namespace

std::string ToText(SessionFaults const& faults)
{
    std::string text;
    for (size_t i = 0, size = 1; i < faults.wire.size(); i += size) {
        auto const& fault = faults.wire[i];
        // Noise is many bytes at one place.
        auto const is_elsewhere = [&](WireFault const& other) {
            return other.kind != fault.kind || other.direction != fault.direction ||
                   other.position != fault.position;
        };
        auto const begin = faults.wire.begin() + static_cast<std::ptrdiff_t>(i);
        auto const end = std::find_if(begin, faults.wire.end(), is_elsewhere);
        size = static_cast<size_t>(end - begin);
        text += ToText(fault) + (size > 1 ? fmt::format(" and {} more; ", size - 1) : "; ");
    }
    for (auto const& fault : faults.unit) {
        text += fmt::format("{} {} {} {}; ", simulator::GetName(fault.kind), fault.at, fault.count,
                            fault.parameter);
    }
    return text;
}

SessionFaults MakeRandomFaults(Random& random, std::array<size_t, 2> bytes,
                               VirtualTransport const& transport)
{
    SessionFaults faults;
    auto const start = random.Below(size_t{1000});
    for (auto count = 1 + random.Below(kMostFaults); count > 0; --count) {
        AddWireFaults(random, bytes, start, transport.telling, faults.wire);
    }
    for (auto count = random.Below(size_t{3}); count > 0; --count) {
        faults.unit.push_back(MakeUnitFault(random, transport));
    }
    return faults;
}

}  // namespace cuts
