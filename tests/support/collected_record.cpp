#include "tests/support/collected_record.h"

using namespace Qt::StringLiterals;

void CollectedRecord::BeginSession(QString const& port)
{
    std::lock_guard const lock(mutex_);
    texts_.append(u"session "_s + port);
}

uint32_t CollectedRecord::AddLine(QString const& name, QString const& description)
{
    std::lock_guard const lock(mutex_);
    if (!lines_.contains(name)) {
        texts_.append(u"line %1 %2: %3"_s.arg(lines_.size()).arg(name, description));
        lines_.append(name);
    }
    return static_cast<uint32_t>(lines_.indexOf(name));
}

void CollectedRecord::AddBytes(uint32_t line, record::Direction direction, QByteArrayView bytes)
{
    std::lock_guard const lock(mutex_);
    if (bytes.isEmpty()) {
        return;
    }
    packets_.append({line, direction, bytes.toByteArray()});
    texts_.append(u"%1 %2 %3"_s.arg(line)
                      .arg(direction == record::Direction::kOut ? u"out"_s : u"in"_s)
                      .arg(QString::fromLatin1(bytes.toByteArray().toHex())));
}

void CollectedRecord::AddEvent(record::Event const& event)
{
    std::lock_guard const lock(mutex_);
    texts_.append(QString::fromUtf8(record::FormatEvent(event)));
}

QStringList CollectedRecord::Texts() const
{
    std::lock_guard const lock(mutex_);
    return texts_;
}

QByteArray CollectedRecord::Bytes(QString const& line, record::Direction direction) const
{
    std::lock_guard const lock(mutex_);
    QByteArray bytes;
    for (auto const& packet : packets_) {
        if (lines_.value(packet.line) == line && packet.direction == direction) {
            bytes += packet.bytes;
        }
    }
    return bytes;
}
