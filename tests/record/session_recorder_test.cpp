// The records that sessions leave behind, with bytes and events from several threads.
#include "record/session_recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <chrono>
#include <thread>

#include "record/pcapng_reader.h"

using namespace record;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class SessionRecorderTest : public testing::Test {
protected:
    SessionRecorderTest() { setup_.limits.ending = 0ms; }

    std::unique_ptr<SessionRecorder> MakeRecorder()
    {
        return std::make_unique<SessionRecorder>(setup_);
    }

    // Of an update, with one byte in each direction.
    static void RecordUpdate(SessionRecorder& recorder, char const* outcome)
    {
        recorder.BeginSession(QStringLiteral("ttyUSB0"));
        auto const line = recorder.AddLine(QStringLiteral("ttyUSB0"), QStringLiteral("UART"));
        recorder.AddBytes(line, Direction::kOut, "\x7F");
        recorder.AddBytes(line, Direction::kIn, "\x79");
        recorder.AddEvent({QLatin1String(events::kUpdateStarted), {}});
        recorder.SetOutcome(QLatin1String(outcome));
        recorder.EndSession();
    }

    // The outcomes in the files' names, the oldest first.
    std::vector<std::string> ListOutcomes() const
    {
        std::vector<std::string> outcomes;
        for (auto const& name : QDir(folder_).entryList(QDir::Files, QDir::Name)) {
            // After the time, which has 20 characters.
            outcomes.push_back(name.mid(21).chopped(7).toStdString());
        }
        return outcomes;
    }

    Recording ReadOnly() const
    {
        auto const names = QDir(folder_).entryList(QDir::Files);
        EXPECT_EQ(names.size(), 1);
        return ReadPcapngFile(QDir(folder_).filePath(names.value(0)));
    }

    static QStringList ListEvents(Recording const& recording)
    {
        QStringList texts;
        for (auto const& packet : recording.packets) {
            texts += packet.comments;
        }
        return texts;
    }

    // Looks again and again, for ten seconds at most.
    template <typename Condition>
    static bool WaitUntilTrue(Condition const& condition)
    {
        auto const limit = std::chrono::steady_clock::now() + 10s;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > limit) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    QTemporaryDir temporary_;
    QString folder_ = temporary_.filePath(QStringLiteral("sessions"));
    std::atomic<int> reports_ = 0;
    RecorderSetup setup_{folder_,
                         QStringLiteral("uart"),
                         {{}, {}, QStringLiteral("Updater")},
                         [this](QString const& text) {
                             EXPECT_TRUE(text.contains(folder_)) << text.toStdString();
                             ++reports_;
                         }};
};

}  // namespace

TEST_F(SessionRecorderTest, ASessionLeavesAFileWithItsBytesAndEventsNamedAfterItsOutcome)
{
    RecordUpdate(*MakeRecorder(), "failed");

    EXPECT_THAT(ListOutcomes(), ElementsAre("uart-failed"));
    auto const recording = ReadOnly();
    EXPECT_EQ(recording.error, QString());
    EXPECT_EQ(recording.section.application, QStringLiteral("Updater"));
    ASSERT_THAT(recording.interfaces, SizeIs(2));
    EXPECT_EQ(recording.interfaces[1].name, QStringLiteral("ttyUSB0"));
    EXPECT_EQ(recording.interfaces[1].description, QStringLiteral("UART"));
    EXPECT_EQ(ListEvents(recording),
              QStringList({QStringLiteral("event: connect port=ttyUSB0 transport=uart"),
                           QStringLiteral("event: update-started"),
                           QStringLiteral("event: end outcome=failed")}));
    ASSERT_THAT(recording.packets, SizeIs(5));
    EXPECT_EQ(recording.packets[1].bytes, "\x7F");
    EXPECT_EQ(recording.packets[1].direction, Direction::kOut);
    EXPECT_EQ(recording.packets[2].bytes, "\x79");
    EXPECT_EQ(recording.packets[2].direction, Direction::kIn);
    EXPECT_TRUE(std::ranges::is_sorted(recording.packets, {}, &RecordedPacket::time));
    auto const now = QDateTime::currentMSecsSinceEpoch();
    EXPECT_NEAR(static_cast<double>(recording.packets[0].time) / 1e6, static_cast<double>(now),
                60'000);
    EXPECT_EQ(reports_, 0);
}

TEST_F(SessionRecorderTest, APortThatNeverAnswersLeavesNoFileAndNoFolder)
{
    {
        auto const recorder = MakeRecorder();
        for (int attempt = 0; attempt < 10; ++attempt) {
            recorder->BeginSession(QStringLiteral("ttyUSB0"));
            auto const line = recorder->AddLine(QStringLiteral("ttyUSB0"), {});
            recorder->AddBytes(line, Direction::kOut, "\x7F");
            recorder->EndSession();
        }
    }
    EXPECT_FALSE(QDir(folder_).exists());
}

TEST_F(SessionRecorderTest, AnUpdateThatNobodyAnswersLeavesAFile)
{
    {
        auto const recorder = MakeRecorder();
        recorder->BeginSession({});
        recorder->AddEvent({QLatin1String(events::kUpdateStarted), {}});
    }
    EXPECT_THAT(ListOutcomes(), ElementsAre("uart-not-connected"));
}

TEST_F(SessionRecorderTest, ASessionThatEndsLikeTheOneBeforeItReplacesItUnlessThereWasAnUpdate)
{
    setup_.limits.waiting_sessions = 100;
    {
        auto const recorder = MakeRecorder();
        auto const attempt = [&](char const* port, char const* outcome) {
            recorder->BeginSession(QLatin1String(port));
            recorder->AddBytes(recorder->AddLine(QLatin1String(port), {}), Direction::kIn, "x");
            recorder->SetOutcome(QLatin1String(outcome));
        };
        RecordUpdate(*recorder, "failed");
        RecordUpdate(*recorder, "failed");
        for (int i = 0; i < 5; ++i) {
            attempt("a", "refused");
        }
        attempt("b", "refused");
        attempt("b", "connected");
        RecordUpdate(*recorder, "done");
        attempt("b", "connected");
    }
    EXPECT_THAT(
        ListOutcomes(),
        testing::UnorderedElementsAre(
            "uart-failed", "uart-2-failed", testing::ContainsRegex("uart.*-refused"),
            testing::ContainsRegex("uart.*-refused"), testing::ContainsRegex("uart.*-connected"),
            testing::ContainsRegex("uart.*-done"), testing::ContainsRegex("uart.*-connected")));
}

TEST_F(SessionRecorderTest, WhatHappensBetweenSessionsIsNotRecorded)
{
    {
        auto const recorder = MakeRecorder();
        recorder->AddEvent({QLatin1String(events::kUpdateStarted), {}});
        EXPECT_EQ(recorder->AddLine(QStringLiteral("early"), {}), UINT32_MAX);
        recorder->AddBytes(0, Direction::kIn, "early");
        RecordUpdate(*recorder, "done");
        ASSERT_TRUE(WaitUntilTrue(
            [&] { return ListOutcomes().size() == 1 && ListOutcomes()[0] == "uart-done"; }));
        recorder->AddBytes(1, Direction::kIn, "late");
        recorder->AddEvent({QStringLiteral("late"), {}});
    }
    EXPECT_THAT(ListOutcomes(), ElementsAre("uart-done"));
    EXPECT_THAT(ReadOnly().packets, SizeIs(5));
}

TEST_F(SessionRecorderTest, AnEndingSessionTakesTheEventsOfAMomentMoreUnlessAnotherBegins)
{
    setup_.limits.ending = 1h;
    auto const recorder = MakeRecorder();
    RecordUpdate(*recorder, "done");
    recorder->AddEvent({QStringLiteral("late"), {}});
    recorder->BeginSession({});

    ASSERT_TRUE(
        WaitUntilTrue([&] { return ListOutcomes() == std::vector<std::string>{"uart-done"}; }));
    EXPECT_TRUE(ListEvents(ReadOnly()).contains(QStringLiteral("event: late")));
}

TEST_F(SessionRecorderTest, WhatIsRecordedReachesTheDiskWhileTheSessionGoesOn)
{
    setup_.limits.ending = 1h;
    auto const recorder = MakeRecorder();
    RecordUpdate(*recorder, "done");

    EXPECT_TRUE(WaitUntilTrue([&] {
        return ListOutcomes() == std::vector<std::string>{"uart"} && ReadOnly().packets.size() == 4;
    }));
}

TEST_F(SessionRecorderTest, OneLineKeepsItsNumberAndAnUnknownNumberIsNone)
{
    {
        auto const recorder = MakeRecorder();
        recorder->BeginSession({});
        EXPECT_EQ(recorder->AddLine(QStringLiteral("a"), {}), 1U);
        EXPECT_EQ(recorder->AddLine(QStringLiteral("b"), {}), 2U);
        EXPECT_EQ(recorder->AddLine(QStringLiteral("a"), {}), 1U);
        recorder->AddBytes(3, Direction::kIn, "x");
        recorder->AddBytes(2, Direction::kIn, "y");
    }
    auto const recording = ReadOnly();
    EXPECT_EQ(recording.error, QString());
    ASSERT_THAT(recording.packets, SizeIs(3));
    EXPECT_EQ(recording.packets[1].bytes, "y");
}

TEST_F(SessionRecorderTest, BytesThatAreTooManyForOnePacketFillSeveral)
{
    QByteArray const bytes(kLargestPacket * 2 + 1, 'x');
    {
        auto const recorder = MakeRecorder();
        recorder->BeginSession({});
        recorder->AddBytes(recorder->AddLine(QStringLiteral("a"), {}), Direction::kIn, bytes);
    }
    auto const recording = ReadOnly();
    ASSERT_THAT(recording.packets, SizeIs(5));
    EXPECT_EQ(recording.packets[3].bytes.size(), 1);
}

TEST_F(SessionRecorderTest, AFolderThatCannotBeWrittenIsReportedOnceAndNothingElseHappens)
{
    QFile in_the_way(folder_);
    ASSERT_TRUE(in_the_way.open(QIODevice::WriteOnly));
    {
        auto const recorder = MakeRecorder();
        RecordUpdate(*recorder, "done");
        RecordUpdate(*recorder, "done");
    }
    EXPECT_EQ(reports_, 1);
    EXPECT_EQ(in_the_way.size(), 0);
}

TEST_F(SessionRecorderTest, SeveralThreadsFillSessionsWhileOthersBegin)
{
    setup_.limits.flush = 1ms;
    constexpr int kRounds = 2000;
    {
        auto const recorder = MakeRecorder();
        auto const add_bytes = [&] {
            for (int i = 0; i < kRounds; ++i) {
                recorder->AddBytes(1, Direction::kIn, QByteArray(i % 300, 'x'));
            }
        };
        auto const add_events = [&] {
            for (int i = 0; i < kRounds; ++i) {
                recorder->AddEvent({QLatin1String(events::kLog),
                                    {{QLatin1String(fields::kText), QString::number(i)}}});
            }
        };
        std::thread bytes(add_bytes);
        std::thread log(add_events);
        for (int i = 0; i < 10; ++i) {
            RecordUpdate(*recorder, "done");
        }
        bytes.join();
        log.join();
    }
    auto const names = QDir(folder_).entryList(QDir::Files);
    EXPECT_FALSE(names.isEmpty());
    for (auto const& name : names) {
        auto const recording = ReadPcapngFile(QDir(folder_).filePath(name));
        EXPECT_EQ(recording.error, QString());
        EXPECT_TRUE(std::ranges::is_sorted(recording.packets, {}, &RecordedPacket::time));
    }
    EXPECT_EQ(reports_, 0);
}
