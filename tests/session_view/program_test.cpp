// session_view as support starts it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>
#include <string>

#include "tests/session_view/recorded_session.h"
#include "tests/support/files.h"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr int kLimitMs = 30000;

class SessionViewProgram : public testing::Test {
protected:
    SessionViewProgram()
    {
        RecordedSession session;
        session.AddInterface(QStringLiteral("ttyUSB0"), QStringLiteral("UART, 460800 baud, 8E1"));
        session.Send("\x7F");
        session.Receive("\x79");
        WriteFile(good_, session.Bytes());
        WriteFile(cut_, session.Bytes().chopped(1));
        WriteFile(broken_, "no record");
    }

    // Returns the exit status.
    int Run(QStringList const& arguments)
    {
        QProcess process;
        process.start(QStringLiteral(FW_SESSION_VIEW), arguments);
        EXPECT_TRUE(process.waitForFinished(kLimitMs));
        output_ = process.readAllStandardOutput().toStdString();
        errors_ = process.readAllStandardError().toStdString();
        return process.exitCode();
    }

    QTemporaryDir folder_;
    QString const good_ = folder_.filePath(QStringLiteral("good.pcapng"));
    QString const cut_ = folder_.filePath(QStringLiteral("cut.pcapng"));
    QString const broken_ = folder_.filePath(QStringLiteral("broken.pcapng"));
    std::string output_;
    std::string errors_;
};

TEST_F(SessionViewProgram, ShowsTheConversationOrTheSummary)
{
    EXPECT_EQ(Run({good_}), 0);
    EXPECT_THAT(output_, HasSubstr("Start byte 0x7F: ACK"));
    EXPECT_THAT(output_, Not(HasSubstr("outcome: ")));

    EXPECT_EQ(Run({QStringLiteral("--summary"), good_}), 0);
    EXPECT_THAT(output_, HasSubstr("outcome: "));
    EXPECT_THAT(errors_, IsEmpty());
}

TEST_F(SessionViewProgram, ShowsWhatIsReadableOfEachFileAndItsStatusIsThatOfTheWorst)
{
    EXPECT_EQ(Run({cut_}), 1);
    EXPECT_THAT(output_, HasSubstr("Start byte 0x7F: no answer"));
    EXPECT_THAT(output_, HasSubstr("The file cannot be read to its end: "));

    EXPECT_EQ(Run({broken_, cut_, good_}), 2);
    EXPECT_THAT(output_, HasSubstr("==== " + good_.toStdString()));
    EXPECT_THAT(output_, HasSubstr("Start byte 0x7F: ACK"));
    EXPECT_THAT(errors_, HasSubstr(broken_.toStdString() + ": "));
}

TEST_F(SessionViewProgram, RefusesACommandLineThatItCannotUse)
{
    for (auto const& arguments :
         {QStringList{}, QStringList{QStringLiteral("--nonsense"), good_},
          QStringList{folder_.filePath(QStringLiteral("missing.pcapng"))}}) {
        EXPECT_EQ(Run(arguments), 2);
        EXPECT_THAT(output_, IsEmpty());
        EXPECT_FALSE(errors_.empty());
    }
    EXPECT_EQ(Run({QStringLiteral("--help")}), 0);
    EXPECT_THAT(output_, HasSubstr("--summary"));
}

}  // namespace
