// How signals of the backend and lines of the log become a session's record.
#include "app/session_record.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QTemporaryDir>

#include "app/session_report.h"
#include "record/event.h"
#include "record/pcapng_reader.h"
#include "tests/support/fake_backend.h"
#include "tests/support/files.h"

namespace {

class SessionRecord : public testing::Test {
protected:
    SessionRecord()
    {
        WriteFile(image_, "abc");
        recorder_ = std::make_unique<record::SessionRecorder>(
            GetRecorderSetup(directory_.path(), TargetMcubootSerial, log_));
        RecordSessions(backend_, *recorder_);
        LogImageOfEachUpdate(backend_, image_, log_, *recorder_);
    }

    // The events of the only record, once the recorder has ended; with the outcome in its name.
    QStringList EndAndListEvents(QString const& outcome)
    {
        recorder_.reset();
        QDir const folder(directory_.filePath(QStringLiteral("sessions")));
        auto const names = folder.entryList(QDir::Files);
        EXPECT_EQ(names.size(), 1);
        EXPECT_TRUE(names.value(0).endsWith(QStringLiteral("Z-mcuboot-%1.pcapng").arg(outcome)))
            << names.value(0).toStdString();
        auto const recording = record::ReadPcapngFile(folder.filePath(names.value(0)));
        EXPECT_EQ(recording.error, QString());
        QStringList texts;
        for (auto const& packet : recording.packets) {
            for (auto const& comment : packet.comments) {
                texts.append(comment.mid(static_cast<int>(sizeof "event: ") - 1));
            }
        }
        return texts;
    }

    // A byte from the unit, without which a session without an update leaves nothing.
    void Receive() { recorder_->AddBytes(0, record::Direction::kIn, "x"); }

    QTemporaryDir directory_;
    QString image_ = directory_.filePath(QStringLiteral("image.bin"));
    SupportLog log_{directory_.filePath(QStringLiteral("log"))};
    std::unique_ptr<record::SessionRecorder> recorder_;
    FakeBackend backend_;
};

constexpr char const* kConnectEvent = "connect port=ttyX transport=mcuboot";

QStringList ToTexts(std::initializer_list<char const*> texts)
{
    QStringList list;
    for (auto const* const text : texts) {
        list.append(QLatin1String(text));
    }
    return list;
}

}  // namespace

TEST_F(SessionRecord, OfAnUpdateHasEachStepOnce)
{
    backend_.Record().percentages = {0, 50, 50, 100};
    backend_.onConnectToDevice(QStringLiteral("ttyX"), {}, true);
    Q_EMIT backend_.EraseStarted();
    Q_EMIT backend_.EraseFinished();
    backend_.onStartUpdate();
    backend_.onDisconnectDevice();

    EXPECT_EQ(
        EndAndListEvents(QStringLiteral("done")),
        ToTexts({kConnectEvent, "status value=connected", "erase-started", "erase-finished",
                 "update-started",
                 "image bytes=3 sha256=ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410"
                 "ff61f20015ad",
                 "progress percent=0", "progress percent=50", "progress percent=100",
                 "update-finished result=done", "status value=disconnected", "end outcome=done"}));
}

TEST_F(SessionRecord, OfAFailedUpdateIsNamedSo)
{
    ASSERT_TRUE(QFile::remove(image_));
    backend_.Record().uploads = false;
    backend_.onConnectToDevice(QStringLiteral("ttyX"), {}, true);
    backend_.onStartUpdate();

    EXPECT_EQ(EndAndListEvents(QStringLiteral("failed")),
              ToTexts({kConnectEvent, "status value=connected", "update-started",
                       "update-finished result=failed", "end outcome=failed"}));
}

TEST_F(SessionRecord, OfAnUpdateWithoutAnEndIsNamedInterrupted)
{
    backend_.onConnectToDevice(QStringLiteral("ttyX"), {}, true);
    Q_EMIT backend_.UpdateStarted();

    EXPECT_EQ(EndAndListEvents(QStringLiteral("interrupted")).size(), 5);
}

TEST_F(SessionRecord, WithoutAnUpdateIsNamedAfterTheConnection)
{
    backend_.Record().verifies = false;
    backend_.onConnectToDevice(QStringLiteral("ttyX"), {}, true);
    Receive();

    EXPECT_EQ(EndAndListEvents(QStringLiteral("refused")),
              ToTexts({kConnectEvent, "status value=refused", "end outcome=refused"}));
}

TEST_F(SessionRecord, OfAUnitThatDidNotConnectIsNamedSo)
{
    backend_.Record().connects = false;
    backend_.onConnectToDevice(QStringLiteral("ttyX"), {}, true);
    Receive();

    EXPECT_EQ(EndAndListEvents(QStringLiteral("not-connected")),
              ToTexts({kConnectEvent, "status value=disconnected", "end outcome=not-connected"}));
}

TEST_F(SessionRecord, HasTheLogsLinesAndTheWindowsStatesWhileASessionGoesOn)
{
    {
        LogRecorder const log_recorder(log_, *recorder_);
        log_.Write(u"before");
        backend_.onConnectToDevice(QStringLiteral("ttyX"), {}, true);
        log_.Write(u"info: window: unit connected");
        log_.Write(u"warning: it says \"no\"\n");
    }
    log_.Write(u"after");
    Receive();

    EXPECT_EQ(EndAndListEvents(QStringLiteral("connected")),
              ToTexts({kConnectEvent, "status value=connected", "window state=\"unit connected\"",
                       R"(log text="warning: it says \"no\"")", "end outcome=connected"}));
}

TEST_F(SessionRecord, ThatCannotBeWrittenIsInTheLog)
{
    WriteFile(directory_.filePath(QStringLiteral("sessions")), "in the way");
    backend_.onConnectToDevice(QStringLiteral("ttyX"), {}, true);
    backend_.onStartUpdate();
    recorder_.reset();

    EXPECT_EQ(ReadFile(log_.CurrentFile()).count(" no record of the session is kept: "), 1);
}

TEST_F(SessionRecord, HasNoFolderWithoutOneForTheLog)
{
    EXPECT_EQ(GetRecorderSetup({}, TargetUart, log_).folder, QString());
}
