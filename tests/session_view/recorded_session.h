// Makes the record of a session, packet by packet, as the program writes it.
#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>
#include <cstdint>

#include "record/event.h"
#include "record/pcapng_writer.h"

class RecordedSession {
public:
    // With the interface of events, number 0.
    explicit RecordedSession(record::Section const& section = {QStringLiteral("x86_64"),
                                                               QStringLiteral("Debian"),
                                                               QStringLiteral("Updater 1.0.0")})
    {
        record::AppendSection(bytes_, section);
        AddInterface(QLatin1String(record::kSessionInterface), {});
    }

    // Returns its number.
    uint32_t AddInterface(QString const& name, QString const& description)
    {
        record::AppendInterface(bytes_, {name, description});
        return interfaces_++;
    }

    // All that follows happens so much later.
    void Wait(std::chrono::microseconds time)
    {
        time_ += static_cast<uint64_t>(time.count()) * 1000;
    }

    void Send(QByteArray const& bytes, uint32_t line = 1)
    {
        Append(line, record::Direction::kOut, bytes, {});
    }
    void Receive(QByteArray const& bytes, uint32_t line = 1)
    {
        Append(line, record::Direction::kIn, bytes, {});
    }
    void Note(char const* event, char const* field = nullptr, QString const& value = {})
    {
        record::Event noted{QLatin1String(event), {}};
        if (field != nullptr) {
            noted.fields.append({QLatin1String(field), value});
        }
        Note(noted);
    }
    void Note(record::Event const& event)
    {
        Append(0, record::Direction::kUnknown, {}, record::FormatEvent(event));
    }

    QByteArray const& Bytes() const { return bytes_; }

private:
    void Append(uint32_t line, record::Direction direction, QByteArray const& bytes,
                QByteArray const& comment)
    {
        record::AppendPacket(bytes_, {line, time_, direction}, bytes, comment);
    }

    QByteArray bytes_;
    uint32_t interfaces_ = 0;
    uint64_t time_ = 1'790'000'000'000'000'000;  // 2026-09-21T14:13:20Z
};
