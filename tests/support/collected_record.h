// A record in memory, as a list of texts: "line 1 ttyUSB0: UART", "1 out 7f" and "1 in 79ff" in
// hexadecimal, and events in their written form.
#pragma once

#include <QStringList>
#include <mutex>

#include "record/sink.h"

// Any thread may hand over.
class CollectedRecord final : public record::ISink {
public:
    void BeginSession(QString const& port) override;
    uint32_t AddLine(QString const& name, QString const& description) override;
    void AddBytes(uint32_t line, record::Direction direction, QByteArrayView bytes) override;
    void AddEvent(record::Event const& event) override;

    QStringList Texts() const;
    // All bytes of one line in one direction.
    QByteArray Bytes(QString const& line, record::Direction direction) const;

private:
    struct Packet {
        uint32_t line;
        record::Direction direction;
        QByteArray bytes;
    };

    mutable std::mutex mutex_;
    QStringList texts_;
    QStringList lines_{QLatin1String(record::kSessionInterface)};
    QList<Packet> packets_;
};
