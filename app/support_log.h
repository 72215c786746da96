// The text that a customer sends to support: what the program said and did, in files that stay
// small by themselves. Nothing here ever fails visibly or throws: a log that cannot be written is
// not kept.
#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <mutex>

// The folder where the system keeps such files: ~/Library/Logs/... on macOS, elsewhere
// $XDG_STATE_HOME/..., which is ~/.local/state/... unless it names an absolute path.
// product_type: as QSysInfo::productType() names it. xdg_state_home: that variable's value.
QString GetLogDirectory(QString const& product_type, QString const& home,
                        QString const& xdg_state_home);

// "updater.log" in a folder of its own; older texts in updater.1.log (the newest) to updater.9.log.
// Any thread may write.
class SupportLog {
public:
    static constexpr int kFiles = 10;
    static constexpr qint64 kFileSize = 1'000'000;   // bytes, at most
    static constexpr qsizetype kEntrySize = 65'536;  // bytes; what is longer is cut

    // Creates the folder with the first entry.
    explicit SupportLog(QString directory);

    // Adds the text under the present time. Its further lines are indented; it is on its way to the
    // disk when this returns. What Qt says because of the writing itself is not kept.
    void Write(QStringView text);

    QString CurrentFile() const { return GetFile(0); }

private:
    QString GetFile(int age) const;
    void Append(QByteArray const& entry);
    bool Open();
    void Rotate();

    std::mutex mutex_;
    QString directory_;
    QFile file_;
};

// From its construction to its destruction, what goes through Qt's logging and what the shared code
// prints is written to the log as well; both still go where they went. One at a time.
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
