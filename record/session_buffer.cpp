#include "record/session_buffer.h"

#include <utility>

#include "record/event.h"

namespace record {
namespace {

// Bytes; more than FormatGap() returns.
constexpr qsizetype kLongestGap = 128;

}  // namespace

QByteArray FormatGap(char const* cause, uint64_t packets, uint64_t bytes)
{
    return FormatEvent({QLatin1String(events::kGap),
                        {{QLatin1String(fields::kCause), QLatin1String(cause)},
                         {QLatin1String(fields::kPackets), QString::number(packets)},
                         {QLatin1String(fields::kBytes), QString::number(bytes)}}});
}

SessionBuffer::SessionBuffer(Section const& section, qsizetype capacity) : capacity_(capacity)
{
    blocks_.reserve(capacity);
    AppendSection(blocks_, section);
    AppendInterface(blocks_, {QLatin1String(kSessionInterface), QStringLiteral("events")});
}

bool SessionBuffer::AddInterface(Interface const& interface)
{
    QByteArray block;
    AppendInterface(block, interface);
    if (blocks_.size() + block.size() > capacity_) {
        return false;
    }
    blocks_.append(block);
    return true;
}

void SessionBuffer::AddPacket(PacketInfo const& packet, QByteArrayView bytes,
                              QByteArrayView comment)
{
    auto const gap = lost_packets_ == 0 ? 0 : GetPacketSize(0, kLongestGap);
    auto const size = GetPacketSize(bytes.size(), comment.size());
    if (blocks_.size() + gap + size > capacity_) {
        ++lost_packets_;
        lost_bytes_ += static_cast<uint64_t>(bytes.size());
        return;
    }
    if (lost_packets_ != 0) {
        AddGap(packet.time);
    }
    AppendPacket(blocks_, packet, bytes, comment);
}

void SessionBuffer::AddGap(uint64_t time)
{
    AppendPacket(
        blocks_, {0, time, Direction::kUnknown}, {},
        FormatGap(kGapOfDisk, std::exchange(lost_packets_, 0), std::exchange(lost_bytes_, 0)));
}

void SessionBuffer::Take(QByteArray& emptied)
{
    emptied.resize(0);
    blocks_.swap(emptied);
}

}  // namespace record
