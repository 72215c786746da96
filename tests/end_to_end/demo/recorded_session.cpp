#include "tests/end_to_end/demo/recorded_session.h"

#include <QCryptographicHash>
#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "record/event.h"
#include "record/pcapng_reader.h"
#include "tests/end_to_end/demo/demo.h"

using namespace Qt::StringLiterals;

namespace {

namespace events = record::events;
namespace fields = record::fields;

void Take(record::Event const& event, RecordedEnd& end)
{
    if (event.name == QLatin1String(events::kConnect)) {
        end.transport = FindTransport(event.GetValue(fields::kTransport));
        end.outcome = u"not-connected"_s;
    } else if (event.name == QLatin1String(events::kStatus)) {
        auto const status = event.GetValue(fields::kValue);
        end.outcome = status == u"disconnected"_s ? end.outcome : status;
    } else if (event.name == QLatin1String(events::kUpdateStarted)) {
        end.has_update = true;
        end.outcome.clear();
    } else if (event.name == QLatin1String(events::kImage)) {
        end.image = {event.GetValue(fields::kBytes).toLongLong(), event.GetValue(fields::kSha256)};
    } else if (event.name == QLatin1String(events::kUpdateFinished)) {
        end.outcome = event.GetValue(fields::kResult);
    }
}

}  // namespace

RecordedEnd ReadRecordedEnd(QString const& path)
{
    auto const recording = record::ReadPcapngFile(path);
    std::optional<RecordedEnd> end;
    for (auto const& packet : recording.packets) {
        for (auto const& comment : packet.comments) {
            auto const event = record::ParseEvent(comment);
            if (event && (end || event->name == QLatin1String(events::kConnect))) {
                end = end ? end : RecordedEnd{};
                Take(*event, *end);
            }
        }
    }
    if (!end) {
        auto const reason =
            recording.error.isEmpty() ? u"it is no record of a session"_s : recording.error;
        throw std::runtime_error((path + u": "_s + reason).toStdString());
    }
    return *end;
}

QString FindOutcome(QByteArray const& log)
{
    static constexpr std::array kSentences{std::pair{" window: update failed", "failed"},
                                           std::pair{" window: update succeeded", "done"},
                                           std::pair{" unit refused on ", "refused"},
                                           std::pair{" unit found on ", "connected"},
                                           std::pair{" no unit answers on ", "not-connected"}};
    // An earlier run may have left its log.
    auto const current = log.mid(std::max<qsizetype>(0, log.lastIndexOf("---- start of version")));
    for (auto const& [sentence, outcome] : kSentences) {
        if (current.contains(sentence)) {
            return QString::fromLatin1(outcome);
        }
    }
    return {};
}

QString DescribeOtherImage(RecordedEnd const& end, QByteArray const& firmware)
{
    auto const digest =
        QString::fromLatin1(QCryptographicHash::hash(firmware, QCryptographicHash::Sha256).toHex());
    if (!end.image || (end.image->size == firmware.size() && end.image->sha256 == digest)) {
        return {};
    }
    return u"the recorded update was of another image: %1 bytes with the SHA-256 %2, while the "
           u"bundle's "
           "has %3 bytes and %4"_s.arg(QString::number(end.image->size), end.image->sha256,
                                       QString::number(firmware.size()), digest);
}
