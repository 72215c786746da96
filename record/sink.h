// Where the owner of a line hands over its bytes as they pass. The device firmware and most tests
// have no record, so a sink that takes everything and keeps nothing is the default everywhere.
#pragma once

#include <QByteArrayView>
#include <QString>
#include <cstdint>

#include "record/event.h"
#include "record/pcapng_format.h"

namespace record {

// All functions may be called on any thread, take no time worth mentioning and never wait for the
// disk. What is handed over is copied.
class ISink {
public:
    virtual ~ISink() = default;

    // A session begins now, and the one before has ended. `port`: the serial port's name, or empty.
    virtual void BeginSession(QString const& port) = 0;

    // Returns the number by which AddBytes knows the line. The same name in the same session is the
    // same line; another session may give another number.
    virtual uint32_t AddLine(QString const& name, QString const& description) = 0;

    // `bytes` have passed on this line just now. No effect between two sessions.
    virtual void AddBytes(uint32_t line, Direction direction, QByteArrayView bytes) = 0;

    // No effect between two sessions.
    virtual void AddEvent(Event const& event) = 0;
};

// Keeps nothing.
ISink& NoSink();

}  // namespace record
