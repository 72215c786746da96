// The stand-in that does what a recorded dfu-util did.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>
#include <string>

#include "record/event.h"
#include "simulator/program/tool_runs.h"
#include "tests/session_view/recorded_session.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

// A run that reads the OTP area and one that writes and ends otherwise.
RecordedSession MakeRecord(QString const& status)
{
    RecordedSession session;
    session.AddInterface(u"dfu-util"_s, u"USB DFU"_s);
    session.AddInterface(u"dfu-util stderr"_s, {});
    session.AddInterface(u"dfu-util file"_s, {});
    auto const note_exit = [&](QString const& code, QString const& how) {
        session.Note({QLatin1String(record::events::kExit),
                      {{QLatin1String(record::fields::kCode), code},
                       {QLatin1String(record::fields::kStatus), how}}});
    };
    session.Send(QByteArray("-d\0001234:5678\0-U\0otp.bin\0", 24));
    session.Receive("reading\n");
    note_exit(u"0"_s, u"normal"_s);
    session.Receive("the area", 3);
    session.Send(QByteArray("-d\0001234:5678\0-D\0image.bin\0", 26));
    session.Wait(50ms);
    session.Receive("writing\n");
    session.Receive("error\n", 2);
    note_exit(u"74"_s, status);
    return session;
}

class ReplayedDfuUtil : public testing::Test {
protected:
    void Use(RecordedSession const& session)
    {
        WriteFile(record_, session.Bytes());
        QFile::remove(journal_);
    }

    // Returns the exit code, or -1 when it was killed.
    int Run(QString const& arguments)
    {
        QProcess process;
        process.start(QStringLiteral(FW_REPLAYED_DFU_UTIL),
                      QStringList{record_, u"0"_s, journal_} + arguments.split(u' '));
        EXPECT_TRUE(process.waitForFinished());
        output_ = process.readAllStandardOutput().toStdString();
        errors_ = process.readAllStandardError().toStdString();
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }

    std::string ReadJournal() const { return ReadFile(journal_).toStdString(); }

    QTemporaryDir folder_;
    QString const record_ = folder_.filePath(u"record.pcapng"_s);
    QString const journal_ = folder_.filePath(u"journal.txt"_s);
    QString const otp_ = folder_.filePath(u"elsewhere.bin"_s);
    std::string output_;
    std::string errors_;
};

TEST_F(ReplayedDfuUtil, PrintsAndWritesAndEndsAsRecorded)
{
    Use(MakeRecord(u"normal"_s));

    EXPECT_EQ(Run(u"-l -a0"_s), 0);
    EXPECT_THAT(output_, HasSubstr("[1234:5678]"));
    EXPECT_EQ(Run(u"-d 1234:5678 -U "_s + otp_), 0);
    EXPECT_EQ(output_, "reading\n");
    EXPECT_EQ(ReadFile(otp_), "the area");
    EXPECT_EQ(Run(u"-d 1234:5678 -D other.bin"_s), 74);
    EXPECT_EQ(output_, "writing\n");
    EXPECT_EQ(errors_, "error\n");
    EXPECT_THAT(ReadJournal(), testing::EndsWith("\ncomplete\n"));
}

TEST_F(ReplayedDfuUtil, IsKilledAsTheRecordedToolWas)
{
    Use(MakeRecord(u"crashed"_s));
    Run(u"-d 1234:5678 -U "_s + otp_);
    EXPECT_EQ(Run(u"-d 1234:5678 -D other.bin"_s), -1);
    EXPECT_EQ(output_, "writing\n");
}

TEST_F(ReplayedDfuUtil, BeginsAgainWithTheFirstRun)
{
    Use(MakeRecord(u"normal"_s));
    for (int i = 0; i < 2; ++i) {
        QFile::remove(otp_);
        EXPECT_EQ(Run(u"-d 1234:5678 -U "_s + otp_), 0);
    }
    EXPECT_EQ(output_, "reading\n");
    EXPECT_EQ(Run(u"-d 1234:5678 -D other.bin"_s), 74);
    EXPECT_THAT(ReadJournal(), HasSubstr("begin-again\n"));
}

TEST_F(ReplayedDfuUtil, NamesADifferenceAndPrintsNothingFromThenOn)
{
    Use(MakeRecord(u"normal"_s));
    EXPECT_EQ(Run(u"-d 1234:0000 -U "_s + otp_), 1);
    EXPECT_EQ(ReadJournal(),
              "difference packet 1, argument 2: \"1234:5678\" expected, \"1234:0000\" received\n");
    EXPECT_EQ(Run(u"-d 1234:5678 -U "_s + otp_), 1);
    EXPECT_EQ(output_, "");

    Use(MakeRecord(u"normal"_s));
    Run(u"-d 1234:5678 -U "_s + otp_);
    Run(u"-d 1234:5678 -D other.bin"_s);
    EXPECT_EQ(Run(u"-d 1234:5678 -D other.bin"_s), 1);
    EXPECT_THAT(ReadJournal(), HasSubstr("difference after the last run, argument 1: nothing"));
}

TEST_F(ReplayedDfuUtil, NeedsARecordOfTheTool)
{
    Use(RecordedSession());
    EXPECT_EQ(Run(u"-l"_s), 64);
    EXPECT_THAT(errors_, HasSubstr("no run of dfu-util was recorded"));
}

TEST(ToolRuns, HaveTheirTimes)
{
    auto const runs = simulator::ReadToolRuns(record::ReadPcapng(MakeRecord(u"normal"_s).Bytes()));
    ASSERT_EQ(runs.size(), 2);
    EXPECT_EQ(runs[0].time, 0ns);
    EXPECT_EQ(runs[1].outputs.first().time, 50ms);
    EXPECT_EQ(runs[1].time, 50ms);
}

}  // namespace
