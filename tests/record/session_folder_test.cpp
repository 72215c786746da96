// The names of records, what a crash leaves over, and which files go.
#include "record/session_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimeZone>

#include "record/session_file.h"

using namespace record;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

QDateTime const& RecordedMoment()
{
    static QDateTime const moment(QDate(2026, 11, 21), QTime(17, 1, 2, 345), QTimeZone::utc());
    return moment;
}

class SessionFolderTest : public testing::Test {
protected:
    void MakeFile(char const* name, qint64 size = 1)
    {
        QFile file(temporary_.filePath(QLatin1String(name)));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.resize(size)) << name;
    }

    std::vector<std::string> List()
    {
        std::vector<std::string> names;
        for (auto const& name :
             QDir(temporary_.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name)) {
            names.push_back(name.toStdString());
        }
        return names;
    }

    QTemporaryDir temporary_;
    Limits limits_{.records = 3, .all_records = 1000, .record = 100};
};

}  // namespace

TEST_F(SessionFolderTest, NamesAFileAfterItsTimeInUtcAndItsTransport)
{
    SessionFolder const folder(temporary_.path(), limits_);
    auto const local = RecordedMoment().toOffsetFromUtc(7200);

    auto const path = folder.MakePath(local, QStringLiteral("uart"));

    EXPECT_EQ(path, temporary_.filePath(QStringLiteral("2026-11-21T17-01-02Z-uart.pcapng")));
    EXPECT_EQ(
        SessionFolder::GetFinishedPath(path, QStringLiteral("not-connected")),
        temporary_.filePath(QStringLiteral("2026-11-21T17-01-02Z-uart-not-connected.pcapng")));
}

TEST_F(SessionFolderTest, NumbersTheFilesOfOneSecond)
{
    SessionFolder const folder(temporary_.path(), limits_);
    MakeFile("2026-11-21T17-01-02Z-uart-failed.pcapng");
    MakeFile("2026-11-21T17-01-02Z-uart-2.pcapng");

    EXPECT_EQ(folder.MakePath(RecordedMoment(), QStringLiteral("uart")),
              temporary_.filePath(QStringLiteral("2026-11-21T17-01-02Z-uart-3.pcapng")));
}

TEST_F(SessionFolderTest, NamesWhatACrashHasLeftOverButNotWhatIsBeingWritten)
{
    MakeFile("2026-11-21T17-01-02Z-uart.pcapng");
    MakeFile("2026-11-21T17-01-02Z-uart.pcapng.new");
    MakeFile("2026-11-21T17-01-03Z-uart-2.pcapng");
    MakeFile("2026-11-21T17-01-04Z-uart-done.pcapng");
    MakeFile("notes.pcapng");
    SessionFile written(temporary_.filePath(QStringLiteral("2026-11-21T17-01-05Z-usb.pcapng")),
                        100);
    ASSERT_TRUE(written.Create());

    SessionFolder(temporary_.path(), limits_).NameLeftOvers();

    EXPECT_THAT(List(), ElementsAre("2026-11-21T17-01-02Z-uart-unfinished.pcapng",
                                    "2026-11-21T17-01-03Z-uart-2-unfinished.pcapng",
                                    "2026-11-21T17-01-04Z-uart-done.pcapng",
                                    "2026-11-21T17-01-05Z-usb.pcapng", "notes.pcapng"));
}

TEST_F(SessionFolderTest, KeepsTheNewestRecordsAndEverythingElse)
{
    MakeFile("2026-11-21T17-01-01Z-uart.pcapng");
    MakeFile("2026-11-21T17-01-02Z-uart-done.pcapng");
    MakeFile("2026-11-21T17-01-03Z-usb-failed.pcapng");
    MakeFile("2026-11-21T17-01-04Z-uart-not-connected.pcapng");
    MakeFile("2026-11-21T17-01-05Z-uart-2-refused.pcapng");
    MakeFile("2026-11-21T17-01-02Z-uart-done (copy).pcapng");
    MakeFile("a.txt");
    SessionFolder const folder(temporary_.path(), limits_);

    folder.RemoveOldest(false);

    EXPECT_THAT(List(), ElementsAre("2026-11-21T17-01-01Z-uart.pcapng",
                                    "2026-11-21T17-01-02Z-uart-done (copy).pcapng",
                                    "2026-11-21T17-01-04Z-uart-not-connected.pcapng",
                                    "2026-11-21T17-01-05Z-uart-2-refused.pcapng", "a.txt"));
    folder.RemoveOldest(true);
    EXPECT_EQ(List().size(), 4U);
}

TEST_F(SessionFolderTest, KeepsTheNewestThatFitAndLeavesRoomForAnother)
{
    MakeFile("2026-11-21T17-01-02Z-uart-done.pcapng", 400);
    MakeFile("2026-11-21T17-01-03Z-uart-done.pcapng", 600);
    SessionFolder const folder(temporary_.path(), limits_);

    folder.RemoveOldest(false);
    EXPECT_EQ(List().size(), 2U);

    folder.RemoveOldest(true);
    EXPECT_THAT(List(), ElementsAre("2026-11-21T17-01-03Z-uart-done.pcapng"));
}

// Otherwise the records of such a clock would push out every new one, for as long as it was ahead.
TEST_F(SessionFolderTest, TakesRecordsOfAClockThatWasAheadForTheOldest)
{
    SessionFolder const folder(temporary_.path(), limits_);
    std::vector<std::string> records;
    auto const now = QDateTime::currentDateTimeUtc();
    // The clock may also have been set back by a moment.
    for (auto const& time : {now.addSecs(-60), now, now.addSecs(60)}) {
        auto const path = SessionFolder::GetFinishedPath(
            folder.MakePath(time, QStringLiteral("uart")), QStringLiteral("done"));
        records.push_back(QFileInfo(path).fileName().toStdString());
        MakeFile(records.back().c_str());
    }
    MakeFile("2999-01-01T00-00-00Z-uart-done.pcapng");
    MakeFile("2999-01-02T00-00-00Z-uart-done.pcapng");

    folder.RemoveOldest(false);

    EXPECT_EQ(List(), records);
}

TEST_F(SessionFolderTest, NeedNotExist)
{
    SessionFolder const folder(temporary_.filePath(QStringLiteral("a/b")), limits_);
    folder.NameLeftOvers();
    folder.RemoveOldest(false);
    EXPECT_THAT(List(), IsEmpty());

    EXPECT_TRUE(folder.Create());
    EXPECT_TRUE(QDir(temporary_.filePath(QStringLiteral("a/b"))).exists());
}

TEST_F(SessionFolderTest, TouchesNothingWithoutAPath)
{
    MakeFile("2026-11-21T17-01-02Z-uart.pcapng");
    auto const before = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(temporary_.path()));
    SessionFolder const folder(QString(), {.records = 0});
    folder.NameLeftOvers();
    folder.RemoveOldest(true);
    auto const is_created = folder.Create();
    QDir::setCurrent(before);

    EXPECT_FALSE(is_created);
    EXPECT_THAT(List(), ElementsAre("2026-11-21T17-01-02Z-uart.pcapng"));
}
