#include "updater/session_notes.h"

#include <QRegularExpression>
#include <algorithm>
#include <chrono>
#include <utility>

#include "updater/model_id.h"
#include "updater/otp_handler.h"
#include "updater/serial_line.h"

namespace {

QString JoinWith(QString const& separator, QStringList parts)
{
    parts.removeAll(QString());
    return parts.join(separator);
}

QString Join(QStringList parts)
{
    return JoinWith(QStringLiteral("; "), std::move(parts));
}

QString GetKind(QString line)
{
    static QRegularExpression const measured(QStringLiteral(R"(\d+ (ms|bytes?)|".*"(\.\.\.)?)"));
    return line.remove(measured);
}

}  // namespace

UnitIdentity ReadIdentity(std::vector<std::byte> const& otp)
{
    otp::OtpHandler<kOtpRecordSize, kOtpRecords> const handler(
        otp, [](auto /*record*/, unsigned char /*index*/) { return otp::kWritten; });
    UnitIdentity identity;
    if (auto const record = handler.FindRecord(kModelIdTag)) {
        identity.model = std::to_integer<uint8_t>((*record)[kModelIdOffset]);
    }
    if (auto const text = handler.Read(kSerialNumberTag)) {
        // One record at most: a text without an end runs on into the following records.
        auto const end = text->substr(0, kOtpRecordSize - kModelIdOffset);
        identity.serial_number =
            QString::fromLatin1(end.data(), static_cast<qsizetype>(end.size()));
    }
    return identity;
}

QString DescribeModel(UnitIdentity const& identity, QList<uint8_t> const& accepted,
                      QString const& otherwise)
{
    QStringList models;
    for (auto const id : accepted) {
        models.append(QString::number(id));
    }
    auto const found = identity.model ? QStringLiteral("model %1").arg(*identity.model) : otherwise;
    auto const wanted =
        QStringLiteral("this firmware is for ") +
        (models.isEmpty() ? QStringLiteral("no model") : models.join(QStringLiteral(", ")));
    auto const serial_number = identity.serial_number.isEmpty()
                                   ? QString()
                                   : QStringLiteral("serial number %1").arg(identity.serial_number);
    return Join({found, wanted, serial_number});
}

QString DescribeModelIn(std::vector<std::byte> const& otp, QList<uint8_t> const& accepted,
                        QString const& failure)
{
    if (otp.empty()) {
        return QStringLiteral("the OTP area cannot be read") +
               (failure.isEmpty() ? QString() : QStringLiteral(": ") + failure);
    }
    return DescribeModel(ReadIdentity(otp), accepted,
                         QStringLiteral("no model record in %1 bytes of OTP").arg(otp.size()));
}

QString DescribeCount(qint64 count, QString const& thing)
{
    return QString::number(count) + QLatin1Char(' ') + thing +
           (count == 1 ? QString() : QStringLiteral("s"));
}

QString DescribeSeconds(std::chrono::milliseconds time)
{
    return QStringLiteral("%1 s").arg(std::chrono::duration<double>(time).count(), 0, 'f', 1);
}

QString DescribePhase(QString const& phase, std::optional<std::chrono::milliseconds> time)
{
    return time ? phase + QLatin1Char(' ') + DescribeSeconds(*time) : QString();
}

QString ListFigures(QStringList figures)
{
    return JoinWith(QStringLiteral(", "), std::move(figures));
}

SessionNotes::~SessionNotes()
{
    WriteRepeats();
}

void SessionNotes::SetSink(Sink sink, Sink held_back)
{
    sink_ = std::move(sink);
    held_back_ = std::move(held_back);
}

void SessionNotes::Write(QString const& line) const
{
    if (sink_) {
        sink_(line);
    }
}

void SessionNotes::WriteLast(QString const& line)
{
    WriteRepeats();
    Write(line);
}

void SessionNotes::ConnectRequested(QString const& port)
{
    port_ = port;
    unit.clear();
    model.clear();
    failure.clear();
}

void SessionNotes::NotConnected()
{
    if (unit.isEmpty()) {
        Report(QStringLiteral("no unit answers"), failure);
    } else {
        Report(QStringLiteral("unit refused"), Join({unit, failure}));
    }
}

void SessionNotes::Disconnected()
{
    WriteRepeats();
    results_.clear();
}

QString SessionNotes::DescribeUnit() const
{
    return Join({unit, model});
}

void SessionNotes::Report(QString const& result, QString const& details)
{
    if (!sink_ && !held_back_) {
        return;
    }
    constexpr qsizetype kMostKinds = 4;
    auto const describe = [&](QString const& port) {
        return result + QStringLiteral(" on ") + port + QStringLiteral(": ") + details;
    };
    auto const kind = GetKind(result + port_ + details);
    auto const known = std::ranges::find(results_, kind, &Result::kind);
    if (known != results_.end()) {
        known->line = describe(known->port);
        ++known->repeats;
        known->time = QTime::currentTime();
        if (held_back_) {
            held_back_(known->line);
        }
        return;
    }
    WriteRepeats();
    if (results_.size() == kMostKinds) {
        results_.removeFirst();
    }
    // Only now: the system takes its time to describe a port.
    auto const port = DescribePort(port_);
    results_.append({kind, port, describe(port)});
    Write(results_.last().line);
}

void SessionNotes::WriteRepeats()
{
    for (auto& result : results_) {
        if (result.repeats > 0) {
            Write(QStringLiteral("the same %1, the last at %2: %3")
                      .arg(DescribeCount(std::exchange(result.repeats, 0),
                                         QStringLiteral("more time")),
                           result.time.toString(QStringLiteral("HH:mm:ss")), result.line));
        }
    }
}

void SessionNotes::UpdateStarted()
{
    Disconnected();
    image_size = 0;
    written = 0;
    figures.clear();
    failure.clear();
    update_time_.start();
}

void SessionNotes::UpdateEnded(bool succeeded)
{
    std::chrono::milliseconds const time{update_time_.elapsed()};
    if (!succeeded) {
        Write(Join({QStringLiteral("update failed after %1 of %2 bytes and %3: %4")
                        .arg(written)
                        .arg(image_size)
                        .arg(DescribeSeconds(time), failure),
                    figures}));
        return;
    }
    auto const rate =
        time.count() > 0 ? static_cast<double>(written) / static_cast<double>(time.count()) : 0.0;
    Write(Join({QStringLiteral("update succeeded: %1 bytes in %2, %3 kB/s")
                    .arg(written)
                    .arg(DescribeSeconds(time))
                    .arg(rate, 0, 'f', 1),
                figures}));
}

void SessionNotes::NotRestarted()
{
    Write(QStringLiteral("the updated unit was not restarted: ") + failure);
}
