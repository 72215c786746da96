// The log that a customer sends to support: what the program printed and did, in files of limited
// size. Nothing here throws or reports an error: what cannot be written is lost.
#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <functional>
#include <mutex>

// This user's home folder: $HOME, or the one that the system's user database names if that variable
// is not an absolute path. Empty if there is neither.
QString GetHomeDirectory();

// The folder where the system keeps such files: ~/Library/Logs/... on macOS, $XDG_STATE_HOME/... on
// other systems, or ~/.local/state/... if that variable is not an absolute path. Empty if the
// folder would be below an empty `home`. product_type: as QSysInfo::productType() names it.
// xdg_state_home: the variable's value.
QString GetLogDirectory(QString const& product_type, QString const& home,
                        QString const& xdg_state_home);

// "updater.log" in its own folder; older entries are in updater.1.log (the newest) to
// updater.9.log. Any thread may write.
class SupportLog {
public:
    static constexpr int kFiles = 10;
    static constexpr qint64 kFileSize = 1'000'000;   // bytes, at most
    static constexpr qsizetype kEntrySize = 65'536;  // bytes; longer entries are cut

    // The folder is created by the first entry. Without a folder (empty) nothing is written.
    explicit SupportLog(QString directory);

    // Adds the text with the current time; further lines are indented. The system has the entry
    // when this returns. Messages that Qt prints because of the writing itself are not logged.
    void Write(QStringView text);

    // Gives a text that is only counted to the listener.
    void PassOn(QStringView text);

    // From now on gets each text before it is written or passed on, on that thread. Must not use
    // the log. An empty one ends that.
    void SetListener(std::function<void(QStringView)> listener);

    QString CurrentFile() const { return GetFile(0); }

private:
    QString GetFile(int age) const;
    void Append(QStringView text);
    bool Open();
    void Rotate();

    std::mutex mutex_;
    QString directory_;
    QFile file_;
    std::function<void(QStringView)> listener_;
};

// From its construction to its destruction, copies all messages of Qt's logging and of the shared
// code's console to the log; those that repeat themselves are counted (repeated_lines.h). There
// must be only one at a time.
class SupportLogTap {
public:
    // `log` must outlive it.
    explicit SupportLogTap(SupportLog& log);
    ~SupportLogTap();
    SupportLogTap(SupportLogTap const&) = delete;
    SupportLogTap& operator=(SupportLogTap const&) = delete;

private:
    QtMessageHandler previous_;
};
