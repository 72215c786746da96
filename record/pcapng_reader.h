// Reads a pcapng file: the blocks that pcapng_writer.h makes, in either byte order. Skips other
// blocks and options, as the format asks of a reader, so a file that Wireshark saved again is still
// read. Never fails as a whole: of a cut or damaged file it returns what comes before the damage,
// and says where that is. Pure, but for the one function that reads a file.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringList>
#include <cstdint>

#include "record/pcapng_format.h"
#include "record/pcapng_writer.h"

namespace record {

struct RecordedInterface {
    QString name;
    QString description;
    uint16_t link_type = 0;
};

struct RecordedPacket {
    qsizetype interface = 0;  // index into Recording::interfaces, always valid
    uint64_t time = 0;        // nanoseconds since 1970-01-01, UTC; coarser files are converted
    Direction direction = Direction::kUnknown;
    QByteArray bytes;
    QStringList comments;
};

struct Recording {
    Section section;  // of the first section that has texts
    QList<RecordedInterface> interfaces;
    QList<RecordedPacket> packets;  // in the order of the file

    // Why reading stopped before the end of the file, as a sentence with the place in bytes, such
    // as "the file ends within the block at byte 120". Empty when all of it was read.
    QString error;
};

// A file is read to its end or to the first damage: a block that does not fit the file or whose two
// lengths differ, an option or a packet that does not fit its block, a packet of an interface that
// was never described.
Recording ReadPcapng(QByteArrayView file);

// The same of the file at `path`; with an error and nothing else when it cannot be opened or read,
// or exceeds kLargestRecording.
inline constexpr qint64 kLargestRecording = qint64{256} * 1024 * 1024;  // bytes
Recording ReadPcapngFile(QString const& path);

}  // namespace record
