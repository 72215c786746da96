// The blocks of a session that have not been written to the disk yet, in a buffer of fixed size.
// What does not fit is counted, and an event says so as soon as there is room again. No thread, no
// file.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <cstdint>

#include "record/pcapng_writer.h"

namespace record {

class SessionBuffer {
public:
    // Begins with the section and the interface of events, which is number 0. `capacity`: bytes, at
    // least 1024. Nothing is allocated later but for interfaces and gaps.
    SessionBuffer(Section const& section, qsizetype capacity);

    // The next number. False, and no number is taken, when it does not fit.
    bool AddInterface(Interface const& interface);

    void AddPacket(PacketInfo const& packet, QByteArrayView bytes, QByteArrayView comment = {});

    bool IsEmpty() const { return blocks_.isEmpty(); }
    bool IsHalfFull() const { return blocks_.size() >= capacity_ / 2; }

    // Exchanges the blocks for `emptied`, whose capacity is used from now on.
    void Take(QByteArray& emptied);

private:
    void AddGap(uint64_t time);

    qsizetype capacity_;
    QByteArray blocks_;
    uint64_t lost_packets_ = 0;
    uint64_t lost_bytes_ = 0;
};

// The comment of the event "gap".
QByteArray FormatGap(char const* cause, uint64_t packets, uint64_t bytes);

}  // namespace record
