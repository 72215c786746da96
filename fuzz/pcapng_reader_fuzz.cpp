// Reads any bytes as a record, writes what was read and reads that again.
#include <cstddef>
#include <cstdint>

#include "fuzz/require.h"
#include "record/event.h"
#include "record/pcapng_reader.h"
#include "record/pcapng_writer.h"

namespace {

// With the first comment of each packet only: no packet of the program has more.
QByteArray WriteAgain(record::Recording const& recording)
{
    QByteArray file;
    record::AppendSection(file, recording.section);
    for (auto const& interface : recording.interfaces) {
        record::AppendInterface(file, {interface.name, interface.description});
    }
    for (auto const& packet : recording.packets) {
        record::AppendPacket(
            file, {static_cast<uint32_t>(packet.interface), packet.time, packet.direction},
            packet.bytes, packet.comments.value(0).toUtf8());
    }
    return file;
}

void CompareWithSecondReading(record::Recording const& recording)
{
    auto const again = record::ReadPcapng(WriteAgain(recording));
    Require(again.error.isEmpty(), "what was written is read without an error");
    Require(again.packets.size() == recording.packets.size(), "no packet is lost");
    for (qsizetype i = 0; i < again.packets.size(); ++i) {
        auto const& first = recording.packets[i];
        auto const& second = again.packets[i];
        Require(first.bytes == second.bytes && first.time == second.time &&
                    first.direction == second.direction && first.interface == second.interface,
                "a packet is read as it was written");
    }
}

void ParseComment(QString const& comment)
{
    if (auto const event = record::ParseEvent(comment)) {
        auto const text = QString::fromUtf8(record::FormatEvent(*event));
        auto const again = record::ParseEvent(text);
        Require(again && QString::fromUtf8(record::FormatEvent(*again)) == text,
                "an event has one form");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    QByteArrayView const file(data, static_cast<qsizetype>(size));
    auto const recording = record::ReadPcapng(file);
    qsizetype bytes = 0;
    for (auto const& packet : recording.packets) {
        Require(packet.interface >= 0 && packet.interface < recording.interfaces.size(),
                "a packet has an interface");
        bytes += packet.bytes.size();
        for (auto const& comment : packet.comments) {
            ParseComment(comment);
        }
    }
    Require(bytes <= file.size(), "packets hold no more than the file does");
    CompareWithSecondReading(recording);
    return 0;
}
