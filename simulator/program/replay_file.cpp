#include "simulator/program/replay_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "record/event.h"
#include "record/pcapng_reader.h"

namespace simulator {
namespace {

std::invalid_argument MakeError(QString const& path, std::string const& problem)
{
    return std::invalid_argument(fmt::format("{}: {}", path.toStdString(), problem));
}

bool IsSmp(record::RecordedInterface const& interface)
{
    return interface.description.startsWith(QLatin1String("MCUboot"));
}

bool IsSerialLine(record::RecordedInterface const& interface)
{
    return IsSmp(interface) || interface.description.startsWith(QLatin1String("UART"));
}

bool IsGap(QString const& comment)
{
    auto const event = record::ParseEvent(comment);
    return event && event->name == QLatin1String(record::events::kGap);
}

ReplayedPacket MakePacket(record::RecordedPacket const& packet, size_t number)
{
    ReplayedPacket made{.number = number,
                        .from_unit = packet.direction == record::Direction::kIn,
                        .time = std::chrono::nanoseconds(packet.time),
                        .bytes = {}};
    std::ranges::transform(packet.bytes, std::back_inserter(made.bytes),
                           [](char value) { return static_cast<std::byte>(value); });
    return made;
}

}  // namespace

ReplayedUnitOptions ReadReplay(QString const& path)
{
    auto const recording = record::ReadPcapngFile(path);
    if (recording.packets.isEmpty() && !recording.error.isEmpty()) {
        throw MakeError(path, recording.error.toStdString());
    }
    auto const line = std::ranges::find_if(recording.interfaces, IsSerialLine);
    if (line == recording.interfaces.end()) {
        throw MakeError(path, "no serial line was recorded");
    }
    ReplayedUnitOptions options{.packets = {}, .has_smp_lines = IsSmp(*line)};
    size_t number = 0;
    std::chrono::nanoseconds latest{0};
    for (auto const& packet : recording.packets) {
        ++number;
        if (std::ranges::any_of(packet.comments, IsGap)) {
            throw MakeError(path, fmt::format("packets are missing at packet {}", number));
        }
        if (packet.interface == line - recording.interfaces.begin() && !packet.bytes.isEmpty()) {
            options.packets.push_back(MakePacket(packet, number));
            // A file of another program may be out of order.
            latest = options.packets.back().time = std::max(latest, options.packets.back().time);
        }
    }
    return options;
}

}  // namespace simulator
