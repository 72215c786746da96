#include "record/session_folder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <algorithm>
#include <utility>

#include "record/session_file.h"

namespace record {
namespace {

constexpr QLatin1String kSuffix(".pcapng");

// Time, transport, a number, and the outcome.
QRegularExpression const& GetNamePattern()
{
    static QRegularExpression const pattern(QStringLiteral(
        R"(^\d{4}-\d\d-\d\dT\d\d-\d\d-\d\dZ-[a-z]+(-\d+)?(-[a-z][a-z-]*)?\.pcapng$)"));
    return pattern;
}

constexpr int kOutcomeGroup = 2;

bool IsRecord(QString const& name)
{
    return GetNamePattern().match(name).hasMatch();
}

bool IsFinished(QString const& name)
{
    return GetNamePattern().match(name).hasCaptured(kOutcomeGroup);
}

// Times in names compare like the names.
QString FormatTime(QDateTime const& time)
{
    return time.toUTC().toString(QStringLiteral("yyyy-MM-ddTHH-mm-ssZ"));
}

// The oldest first. A record that is more than a day ahead was made while the clock was wrong, so
// it is older than all others.
QStringList ListRecords(QString const& folder)
{
    // An empty path would be the current folder.
    if (folder.isEmpty()) {
        return {};
    }
    auto const names = QDir(folder).entryList({QLatin1Char('*') + kSuffix},
                                              QDir::Files | QDir::Hidden, QDir::Name);
    QStringList records;
    for (auto const& name : names) {
        if (IsRecord(name)) {
            records.append(name);
        }
    }
    auto const tomorrow = FormatTime(QDateTime::currentDateTimeUtc().addDays(1));
    auto const ahead = std::upper_bound(records.begin(), records.end(), tomorrow);
    std::rotate(records.begin(), ahead, records.end());
    return records;
}

}  // namespace

SessionFolder::SessionFolder(QString path, Limits const& limits)
    : path_(std::move(path)), limits_(limits)
{}

bool SessionFolder::Create() const
{
    return !path_.isEmpty() && QDir().mkpath(path_);
}

QString SessionFolder::MakePath(QDateTime const& time, QString const& transport) const
{
    auto const name = FormatTime(time) + QLatin1Char('-') + transport;
    auto numbered = name;
    for (int number = 2; !QDir(path_).entryList({numbered + QLatin1Char('*')}).isEmpty();
         ++number) {
        numbered = QStringLiteral("%1-%2").arg(name).arg(number);
    }
    return QDir(path_).filePath(numbered + kSuffix);
}

QString SessionFolder::GetFinishedPath(QString const& path, QString const& outcome)
{
    return path.chopped(kSuffix.size()) + QLatin1Char('-') + outcome + kSuffix;
}

void SessionFolder::NameLeftOvers() const
{
    for (auto const& name : ListRecords(path_)) {
        auto const path = QDir(path_).filePath(name);
        if (!IsFinished(name) && !IsBeingWritten(path)) {
            QFile::remove(GetReplacementPath(path));
            QFile::rename(path, GetFinishedPath(path, QLatin1String(kUnfinished)));
        }
    }
}

void SessionFolder::RemoveOldest(bool another) const
{
    auto const records = ListRecords(path_);
    auto count = records.size() + (another ? 1 : 0);
    auto size = another ? limits_.record : 0;
    for (auto const& name : records) {
        size += QFileInfo(QDir(path_).filePath(name)).size();
    }
    for (auto const& name : records) {
        if (count <= limits_.records && size <= limits_.all_records) {
            return;
        }
        auto const path = QDir(path_).filePath(name);
        auto const file_size = QFileInfo(path).size();
        if (IsFinished(name) && QFile::remove(path)) {
            --count;
            size -= file_size;
        }
    }
}

}  // namespace record
