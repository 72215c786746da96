// Writes a record of each session to a folder, one file a session. The threads that hand over
// bytes and events only copy them into memory; a thread of its own writes to the disk.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "record/limits.h"
#include "record/session_buffer.h"
#include "record/session_file.h"
#include "record/session_folder.h"
#include "record/sink.h"

namespace record {

struct RecorderSetup {
    QString folder;
    QString transport;  // for the files' names, in lower-case letters
    Section section;    // what wrote the files
    // Called at the first failure of the disk only, on the recorder's thread, with a sentence.
    std::function<void(QString const&)> report;
    Limits limits{};
};

// A session gets a file as soon as something has come in on a line or an update was asked for, and
// none before. When such a session without an update ends like the one before it on the same port,
// it replaces that one: a unit that is refused every few seconds must not push out the records of
// updates.
//
// Nothing is thrown, and no failure of the disk reaches a caller: a session whose file cannot be
// written goes on without it.
class SessionRecorder final : public ISink {
public:
    explicit SessionRecorder(RecorderSetup setup);
    // Ends the session and waits until it is on the disk.
    ~SessionRecorder() override;

    void BeginSession(QString const& port) override;
    uint32_t AddLine(QString const& name, QString const& description) override;
    void AddBytes(uint32_t line, Direction direction, QByteArrayView bytes) override;
    void AddEvent(Event const& event) override;

    // What the session will be named if it ends now, in lower-case letters and hyphens. A session
    // begins as "not-connected".
    void SetOutcome(QString const& outcome);

    // The session ends now. Its events may come from other threads, so it takes them for a moment
    // more (Limits::ending) unless another session begins.
    void EndSession();

private:
    using Clock = std::chrono::steady_clock;

    struct Session {
        Session(Section const& section, qsizetype capacity, QString port_name);

        SessionBuffer buffer;
        // A record's clock begins at the time of day and never goes back.
        QDateTime const begin = QDateTime::currentDateTimeUtc();
        uint64_t const epoch;  // nanoseconds
        Clock::time_point const start = Clock::now();
        QString const port;
        QString outcome = QStringLiteral("not-connected");
        QStringList lines{QLatin1String(kSessionInterface)};  // in the order of their numbers
        bool is_kept = false;
        bool has_update = false;
        bool has_ended = false;
        std::optional<Clock::time_point> end;  // when it ends, if that is settled
    };

    // The file of the session that is being written. Used by the recorder's thread only.
    struct Output {
        std::unique_ptr<SessionFile> file;
        bool has_failed = false;
    };

    static uint64_t GetTime(Session const& session);
    void Close();
    void Add(Event const& event);
    bool HasWork() const;
    bool IsUrgent() const;
    void Run();
    void WaitForWork(std::unique_lock<std::mutex>& lock);
    void WriteFirst(std::unique_lock<std::mutex>& lock);
    void Write(QDateTime const& begin);
    void Finish(Session const& session);
    void Fail(QString const& what, QString const& why);

    RecorderSetup const setup_;
    SessionFolder const folder_;

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::shared_ptr<Session>> sessions_;  // to be written; the last may be current_
    std::shared_ptr<Session> current_;               // null between sessions
    bool stops_ = false;

    // Of the recorder's thread.
    QByteArray blocks_;
    Output output_;
    QString last_ending_;  // port and outcome of the last session, if it had no update
    QString last_path_;
    bool has_reported_ = false;

    std::thread thread_;  // the last member: it uses all others
};

}  // namespace record
