#include "app/support_log.h"

#include <pwd.h>
#include <unistd.h>

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <atomic>
#include <utility>

#include "app/product_type.h"
#include "app/repeated_lines.h"
#include "runtime/console.h"

namespace {

// The tap's two listeners are plain functions, so what they need is global.
std::atomic<SupportLog*> tapped_log{nullptr};
std::atomic<QtMessageHandler> next_handler{nullptr};
std::mutex repeated_lines_mutex;
RepeatedLines repeated_lines;

// This thread is in SupportLog::Write. Writing a file may itself make Qt print a message, which the
// tap brings back to the log.
thread_local bool is_writing = false;

void WriteToTappedLog(QString const& text)
{
    auto* const log = tapped_log.load();
    if (log == nullptr) {
        return;
    }
    QStringList lines;
    {
        std::lock_guard const lock(repeated_lines_mutex);
        lines = repeated_lines.Take(text);
    }
    // Without the lock: what writing brings about may come back here.
    for (auto const& line : lines) {
        log->Write(line);
    }
    if (lines.isEmpty()) {
        log->PassOn(text);
    }
}

QLatin1String GetName(QtMsgType type)
{
    switch (type) {
        case QtDebugMsg:
            return QLatin1String("debug");
        case QtInfoMsg:
            return QLatin1String("info");
        case QtWarningMsg:
            return QLatin1String("warning");
        case QtCriticalMsg:
            return QLatin1String("critical");
        case QtFatalMsg:
            return QLatin1String("fatal");
    }
    return QLatin1String("message");
}

// The log comes first: the next handler ends the program if the message is fatal.
void HandleMessage(QtMsgType type, QMessageLogContext const& context, QString const& text)
{
    WriteToTappedLog(GetName(type) + QStringLiteral(": ") + text);
    if (auto const next = next_handler.load()) {
        next(type, context, text);
    }
}

void HandleConsoleText(std::string_view text)
{
    WriteToTappedLog(
        QStringLiteral("output: ") +
        QString::fromLocal8Bit(text.data(), static_cast<qsizetype>(text.size())).trimmed());
}

QByteArray MakeEntry(QStringView text)
{
    auto const now = QDateTime::currentDateTime();
    auto const time = now.toOffsetFromUtc(now.offsetFromUtc()).toString(Qt::ISODateWithMs);
    auto lines = text.trimmed().toString();
    lines.replace(QLatin1Char('\n'), QLatin1String("\n    "));
    auto entry = (time + QLatin1Char(' ') + lines).toUtf8();
    entry.truncate(SupportLog::kEntrySize - 1);
    return entry + '\n';
}

}  // namespace

QString GetHomeDirectory()
{
    auto home = qEnvironmentVariable("HOME");
    if (QDir::isAbsolutePath(home)) {
        return home;
    }
    // QDir::homePath() would be the root folder.
    auto const* const user = ::getpwuid(::getuid());
    auto const registered = user == nullptr ? QString() : QFile::decodeName(user->pw_dir);
    return QDir::isAbsolutePath(registered) ? registered : QString();
}

QString GetLogDirectory(QString const& product_type, QString const& home,
                        QString const& xdg_state_home)
{
    if (!IsMacos(product_type) && QDir::isAbsolutePath(xdg_state_home)) {
        return xdg_state_home + QStringLiteral("/kelvane-firmware-updater");
    }
    if (home.isEmpty()) {
        return {};
    }
    return home + (IsMacos(product_type)
                       ? QStringLiteral("/Library/Logs/Kelvane Firmware Updater")
                       : QStringLiteral("/.local/state/kelvane-firmware-updater"));
}

SupportLog::SupportLog(QString directory) : directory_(std::move(directory)) {}

QString SupportLog::GetFile(int age) const
{
    return directory_ +
           (age == 0 ? QStringLiteral("/updater.log") : QStringLiteral("/updater.%1.log").arg(age));
}

void SupportLog::Write(QStringView text)
{
    if (std::exchange(is_writing, true)) {
        return;
    }
    Append(text);
    is_writing = false;
}

void SupportLog::PassOn(QStringView text)
{
    if (is_writing) {
        return;
    }
    std::lock_guard const lock(mutex_);
    if (listener_) {
        listener_(text);
    }
}

void SupportLog::SetListener(std::function<void(QStringView)> listener)
{
    std::lock_guard const lock(mutex_);
    listener_ = std::move(listener);
}

void SupportLog::Append(QStringView text)
{
    auto const entry = MakeEntry(text);
    std::lock_guard const lock(mutex_);
    if (listener_) {
        listener_(text);
    }
    if (!Open()) {
        return;
    }
    if (file_.size() + entry.size() > kFileSize) {
        Rotate();
        if (!Open() || file_.size() + entry.size() > kFileSize) {
            return;
        }
    }
    auto const size = file_.size();
    if (file_.write(entry) != entry.size()) {
        // What fitted on a full disk would otherwise run into the next entry's line.
        file_.resize(size);
    }
}

bool SupportLog::Open()
{
    if (file_.isOpen()) {
        return true;
    }
    QFileInfo const found(CurrentFile());
    // Opening a named pipe would block until it has a reader.
    if (directory_.isEmpty() || !QDir().mkpath(directory_) || (found.exists() && !found.isFile())) {
        return false;
    }
    file_.setFileName(CurrentFile());
    // Only the customer may read it, until they send it.
    return file_.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered,
                      QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

void SupportLog::Rotate()
{
    file_.close();
    QFile::remove(GetFile(kFiles - 1));
    for (int age = kFiles - 1; age > 0; --age) {
        QFile::rename(GetFile(age - 1), GetFile(age));
    }
}

SupportLogTap::SupportLogTap(SupportLog& log)
{
    tapped_log.store(&log);
    previous_ = qInstallMessageHandler(HandleMessage);
    next_handler.store(previous_);
    kelvane::SetConsoleListener(HandleConsoleText);
}

SupportLogTap::~SupportLogTap()
{
    kelvane::SetConsoleListener(nullptr);
    qInstallMessageHandler(previous_);
    auto* const log = tapped_log.exchange(nullptr);
    std::lock_guard const lock(repeated_lines_mutex);
    if (auto const count = repeated_lines.Finish(); !count.isEmpty()) {
        log->Write(count);
    }
    repeated_lines = {};
}
