// Sentences about a session for the support log, which a person on the telephone can read: what was
// found, why it was refused, how an update went and why it failed. The backends fill in what they
// learn; nothing that they do depends on it.
#pragma once

#include <QElapsedTimer>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTime>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

// What a unit's OTP area tells about it.
struct UnitIdentity {
    std::optional<uint8_t> model;
    QString serial_number;  // empty when there is none
};

UnitIdentity ReadIdentity(std::vector<std::byte> const& otp);

// "model 9; this firmware is for 7, 12", with the serial number if there is one. Without a model,
// `otherwise` takes its place.
QString DescribeModel(UnitIdentity const& identity, QList<uint8_t> const& accepted,
                      QString const& otherwise);

// The same for an OTP area that was read; `failure` says why it is empty.
QString DescribeModelIn(std::vector<std::byte> const& otp, QList<uint8_t> const& accepted,
                        QString const& failure);

// In place of the above for firmware that is written to every model.
inline QString const kNoModelCheck = QStringLiteral("model not checked: service firmware");

// Not thread-safe: all calls come from the backend's thread.
class SessionNotes {
public:
    using Sink = std::function<void(QString const& line)>;

    // Writes what is held back.
    ~SessionNotes();

    // Where the sentences go; nowhere at first. held_back: gets those that are only counted. Before
    // the first of the calls below.
    void SetSink(Sink sink, Sink held_back = {});

    void Write(QString const& line) const;
    // Before the process ends at once.
    void WriteLast(QString const& line);

    // ---- A connect ----

    // Forgets what was learned before.
    void ConnectRequested(QString const& port);

    // What is known so far.
    QString unit;     // what answered
    QString model;    // what DescribeModel returned, or why there was no check
    QString failure;  // why the last operation failed

    // A result that differs from one of the last few at most in what was measured or received is
    // counted, and the counts are written when another one comes: a silent unit, or one that is out
    // of step, is asked every few seconds, for hours.
    void Found() { Report(QStringLiteral("unit found"), DescribeUnit()); }
    void Refused() { Report(QStringLiteral("unit refused"), DescribeUnit()); }
    // A connect that failed: the unit is refused as well if it has answered (`unit` is not empty).
    void NotConnected();
    void Disconnected();

    // ---- An update ----

    void UpdateStarted();

    size_t image_size = 0;  // bytes
    size_t written = 0;     // of these, acknowledged by the unit
    QString figures;        // times and counts, after the bytes

    void UpdateEnded(bool succeeded);
    // A unit that was updated and cannot be restarted.
    void NotRestarted();

private:
    struct Result {
        QString kind;  // without what was measured or received
        QString port;  // described
        QString line;  // the last of them
        int repeats = 0;
        QTime time{};  // of the last repeat
    };

    QString DescribeUnit() const;
    void Report(QString const& result, QString const& details);
    void WriteRepeats();

    Sink sink_;
    Sink held_back_;
    QString port_;
    QList<Result> results_;  // the newest kind last
    QElapsedTimer update_time_;
};

// "1 refused block", "2 refused blocks"
QString DescribeCount(qint64 count, QString const& thing);

// "3.2 s"
QString DescribeSeconds(std::chrono::milliseconds time);

// "erase 3.2 s"; empty for a phase without a time, which was not seen.
QString DescribePhase(QString const& phase, std::optional<std::chrono::milliseconds> time);

// The texts that are not empty, with commas between them.
QString ListFigures(QStringList figures);
