// One record on the disk while it is written. Not for several threads.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QFile>
#include <QString>
#include <cstdint>
#include <memory>

namespace record {

// Until it is closed, the file is locked, so that another process does not take it for one that a
// crash has left over. Nothing is thrown; after a failure, GetError() has the system's reason, and
// what was written before is still there.
class SessionFile {
public:
    // limit: bytes.
    SessionFile(QString path, qint64 limit);

    // Creates the file, which must not exist, for its owner only.
    bool Create();

    // `blocks`: whole blocks, of at most a quarter of the limit. The system has them when this
    // returns. Before the file exceeds its limit, its middle is replaced by an event: three eighths
    // at its beginning stay, the newest quarter and all interfaces.
    bool Append(QByteArrayView blocks);

    // Closes the file and gives it its last name.
    bool Finish(QString const& path);

    QString const& GetPath() const { return path_; }
    QString const& GetError() const { return error_; }

private:
    bool Open(QString const& path);
    bool LeaveOutMiddle();
    bool Write(QByteArrayView bytes);
    bool Fail(QFileDevice const& file);

    QString path_;
    qint64 limit_;
    std::unique_ptr<QFile> file_;
    QString error_;
    qint64 head_size_ = 0;  // bytes before the event that says what is missing; 0: nothing is
    qint64 gap_size_ = 0;   // bytes of that event
    uint64_t left_out_packets_ = 0;
    uint64_t left_out_bytes_ = 0;
};

// True when a process is writing the record of that name. Also when it cannot be opened.
bool IsBeingWritten(QString const& path);

// What LeaveOutMiddle() writes to before it replaces the file; a crash may leave it behind.
QString GetReplacementPath(QString const& path);

}  // namespace record
