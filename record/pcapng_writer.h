// Makes the blocks of a pcapng file: section header, interface description, enhanced packet. Pure:
// each function appends one whole block, in this machine's byte order, to a buffer of the caller.
// pcapng_reader.h is the way back. docs/session-records.md describes what the program puts in.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <cstdint>
#include <optional>

#include "record/pcapng_format.h"

namespace record {

// What wrote the file. Empty texts are left out.
struct Section {
    QString hardware;     // the processor
    QString system;       // the operating system and its version
    QString application;  // the program and its version
};

// Whose bytes a packet holds. Its number is its place among the interfaces of the section.
struct Interface {
    QString name;
    QString description;
};

struct PacketInfo {
    uint32_t interface = 0;  // number
    uint64_t time = 0;       // nanoseconds since 1970-01-01, UTC
    Direction direction = Direction::kUnknown;
};

// Texts are written as UTF-8; one that is longer than an option can be, 65535 bytes, is cut between
// two characters.
void AppendSection(QByteArray& file, Section const& section);

// With nanoseconds as the unit of time and link type USER0.
void AppendInterface(QByteArray& file, Interface const& interface);

// `comment`: UTF-8, at most 65535 bytes of it are written; none is written when it is empty.
// `bytes` may be empty. Allocates nothing while the buffer has capacity for GetPacketSize() more.
void AppendPacket(QByteArray& file, PacketInfo const& packet, QByteArrayView bytes,
                  QByteArrayView comment = {});

// How many bytes AppendPacket appends.
qsizetype GetPacketSize(qsizetype bytes, qsizetype comment = 0);

}  // namespace record
