// What happened in a session besides the bytes, and its form as the comment of a packet. Pure.
// docs/session-records.md lists the events with their fields.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringView>
#include <optional>

namespace record {

// The names of the events, and of their fields.
namespace events {
inline constexpr char kConnect[] = "connect";                 // port, transport
inline constexpr char kStatus[] = "status";                   // value
inline constexpr char kUpdateStarted[] = "update-started";    // no field
inline constexpr char kImage[] = "image";                     // bytes, sha256
inline constexpr char kEraseStarted[] = "erase-started";      // no field
inline constexpr char kEraseFinished[] = "erase-finished";    // no field
inline constexpr char kProgress[] = "progress";               // percent
inline constexpr char kUpdateFinished[] = "update-finished";  // result
inline constexpr char kWindow[] = "window";                   // state
inline constexpr char kLog[] = "log";                         // text
inline constexpr char kExit[] = "exit";                       // code, status
inline constexpr char kGap[] = "gap";                         // cause, packets, bytes
inline constexpr char kEnd[] = "end";                         // outcome
}  // namespace events

// The name of the interface that events belong to; it is always number 0.
inline constexpr char kSessionInterface[] = "session";

// The causes of a gap.
inline constexpr char kGapOfDisk[] = "disk";  // packets came faster than the disk took them
inline constexpr char kGapOfSize[] = "size";  // the middle of a record that is too large

namespace fields {
inline constexpr char kPort[] = "port";
inline constexpr char kTransport[] = "transport";
inline constexpr char kValue[] = "value";
inline constexpr char kBytes[] = "bytes";
inline constexpr char kSha256[] = "sha256";
inline constexpr char kPercent[] = "percent";
inline constexpr char kResult[] = "result";
inline constexpr char kState[] = "state";
inline constexpr char kText[] = "text";
inline constexpr char kCode[] = "code";
inline constexpr char kStatus[] = "status";
inline constexpr char kCause[] = "cause";
inline constexpr char kPackets[] = "packets";
inline constexpr char kOutcome[] = "outcome";
}  // namespace fields

struct Field {
    QString name;  // lower-case letters, digits and hyphens
    QString value;

    bool operator==(Field const&) const = default;
};

struct Event {
    QString name;  // as a field's
    QList<Field> fields;

    // The first value of that name; empty if there is none.
    QString GetValue(char const* field) const;

    bool operator==(Event const&) const = default;
};

// "event: connect port=ttyUSB0 transport=uart", in UTF-8. A value that is empty or contains
// anything but printable ASCII without space, '"', '\' and '=' is written between '"', with '\"',
// '\\', '\n', '\r' and '\t' in place of these characters. Other control characters become spaces.
// The values of an event whose text would exceed 65535 bytes are cut.
QByteArray FormatEvent(Event const& event);

// The way back. Nothing for any other comment, such as one that a person added.
std::optional<Event> ParseEvent(QStringView comment);

}  // namespace record
