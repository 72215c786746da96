// The log for support: what it holds, how it stays small, and that nothing about it ever gets in
// the way.
#include "app/support_log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDebug>
#include <QDir>
#include <QTemporaryDir>
#include <cstdlib>
#include <thread>
#include <vector>

#include "runtime/console.h"
#include "tests/support/warnings.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

class SupportLogTest : public testing::Test {
protected:
    QString Directory() const { return root_.filePath(QStringLiteral("state/updater")); }

    std::vector<std::string> Lines(QString const& file = QStringLiteral("updater.log")) const
    {
        QFile opened(Directory() + QLatin1Char('/') + file);
        EXPECT_TRUE(opened.open(QIODevice::ReadOnly)) << file.toStdString();
        std::vector<std::string> lines;
        for (auto const& line : opened.readAll().split('\n')) {
            lines.push_back(line.toStdString());
        }
        EXPECT_EQ(lines.back(), "");
        lines.pop_back();
        return lines;
    }

    QStringList Files() const { return QDir(Directory()).entryList(QDir::Files, QDir::Name); }

    QTemporaryDir root_;
    SupportLog log_{Directory()};
};

// What goes to the program's own output while this lives.
class Output {
public:
    Output()
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
    }
    ~Output()
    {
        if (!taken_) {
            Take();
        }
    }
    Output(Output const&) = delete;
    Output& operator=(Output const&) = delete;

    std::string Take()
    {
        taken_ = true;
        auto const output = testing::internal::GetCapturedStdout();
        return output + testing::internal::GetCapturedStderr();
    }

private:
    bool taken_ = false;
};

// A disk on which no file of this process can grow beyond this size.
class FullDisk {
public:
    explicit FullDisk(qint64 size) : signal_(signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &before_);
        rlimit const full{static_cast<rlim_t>(size), before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    }
    ~FullDisk()
    {
        setrlimit(RLIMIT_FSIZE, &before_);
        signal(SIGXFSZ, signal_);
    }
    FullDisk(FullDisk const&) = delete;
    FullDisk& operator=(FullDisk const&) = delete;

private:
    void (*signal_)(int);
    rlimit before_{};
};

constexpr auto kTime =
    "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}"
    "(Z|[+-][0-9]{2}:[0-9]{2}) ";

TEST(LogDirectory, OfMacosIsInTheUsersLibrary)
{
    EXPECT_EQ(GetLogDirectory(QStringLiteral("macos"), QStringLiteral("/Users/ann"),
                              QStringLiteral("/state")),
              QStringLiteral("/Users/ann/Library/Logs/Kelvane Firmware Updater"));
}

TEST(LogDirectory, ElsewhereIsTheUsersStateDirectory)
{
    auto const get = [](char const* xdg_state_home) {
        return GetLogDirectory(QStringLiteral("debian"), QStringLiteral("/home/ann"),
                               QString::fromLatin1(xdg_state_home));
    };
    EXPECT_EQ(get(""), QStringLiteral("/home/ann/.local/state/kelvane-firmware-updater"));
    EXPECT_EQ(get("/state"), QStringLiteral("/state/kelvane-firmware-updater"));
    EXPECT_EQ(get("state"), QStringLiteral("/home/ann/.local/state/kelvane-firmware-updater"));
}

TEST_F(SupportLogTest, StampsEveryEntryWithItsTime)
{
    log_.Write(u"one");
    log_.Write(u"two");
    EXPECT_THAT(Lines(), ElementsAre(MatchesRegex(std::string(kTime) + "one"),
                                     MatchesRegex(std::string(kTime) + "two")));
}

TEST_F(SupportLogTest, IndentsFurtherLinesOfAnEntry)
{
    log_.Write(u"\none\ntwo\n");
    EXPECT_THAT(Lines(), ElementsAre(EndsWith(" one"), "    two"));
}

TEST_F(SupportLogTest, IsForItsOwnerOnly)
{
    log_.Write(u"text");
    struct stat status = {};
    ASSERT_EQ(stat(log_.CurrentFile().toLocal8Bit().constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, mode_t{0600});
}

TEST_F(SupportLogTest, GoesOnInTheFileOfAnEarlierRun)
{
    log_.Write(u"earlier");
    SupportLog(Directory()).Write(u"later");
    EXPECT_THAT(Lines(), ElementsAre(EndsWith(" earlier"), EndsWith(" later")));
}

TEST_F(SupportLogTest, KeepsTenFilesOfAMillionBytes)
{
    auto const text = QString(50'000, QLatin1Char('x'));
    // Nineteen of them fill a file.
    for (int entry = 0; entry < 19 * 12; ++entry) {
        log_.Write(QString::number(entry) + text);
    }
    ASSERT_EQ(Files().size(), SupportLog::kFiles);
    for (auto const& file : Files()) {
        EXPECT_LE(QFileInfo(Directory(), file).size(), SupportLog::kFileSize);
    }
    EXPECT_THAT(Lines().back(), HasSubstr(" 227xxx"));
    EXPECT_THAT(Lines(QStringLiteral("updater.1.log")).back(), HasSubstr(" 208xxx"));
    EXPECT_THAT(Lines(QStringLiteral("updater.9.log")).front(), HasSubstr(" 38xxx"));
}

TEST_F(SupportLogTest, CutsAnEntryThatIsTooLong)
{
    log_.Write(QString(2'000'000, QLatin1Char('x')));
    EXPECT_EQ(QFileInfo(log_.CurrentFile()).size(), SupportLog::kEntrySize);
}

TEST_F(SupportLogTest, TakesEntriesFromSeveralThreadsWhole)
{
    auto const write = [this](QString const& text) {
        for (int i = 0; i < 200; ++i) {
            log_.Write(text);
        }
    };
    std::thread other(write, QString(300, QLatin1Char('a')));
    write(QString(300, QLatin1Char('b')));
    other.join();
    auto const lines = Lines();
    EXPECT_EQ(lines.size(), 400U);
    EXPECT_THAT(lines, testing::Each(MatchesRegex(std::string(kTime) + "(a{300}|b{300})")));
}

TEST_F(SupportLogTest, IsSilentWhereItCannotBeWritten)
{
    // Permissions do not hold root up; a file in the folder's place does.
    QFile in_the_way(root_.filePath(QStringLiteral("state")));
    ASSERT_TRUE(in_the_way.open(QIODevice::WriteOnly));
    Output output;
    log_.Write(u"lost");
    EXPECT_EQ(output.Take(), "");
    EXPECT_EQ(in_the_way.size(), 0);

    ASSERT_TRUE(in_the_way.remove());
    log_.Write(u"kept");
    EXPECT_THAT(Lines(), ElementsAre(EndsWith(" kept")));
}

TEST_F(SupportLogTest, DoesNotWaitForAReaderOfAPipeInItsPlace)
{
    ASSERT_TRUE(QDir().mkpath(Directory()));
    ASSERT_EQ(mkfifo(log_.CurrentFile().toLocal8Bit().constData(), 0600), 0);
    log_.Write(u"lost");
    EXPECT_EQ(Files(), QStringList());  // a pipe is no plain file
}

TEST_F(SupportLogTest, IsSilentOnAFullDiskAndGoesOnWhenThereIsRoomAgain)
{
    log_.Write(u"before");
    Output output;
    {
        // Room for the beginning of an entry, and for none.
        constexpr qint64 kRoom = 10;
        FullDisk const disk(QFileInfo(log_.CurrentFile()).size() + kRoom);
        log_.Write(u"lost");
        log_.Write(u"lost");
    }
    log_.Write(u"after");
    EXPECT_EQ(output.Take(), "");
    EXPECT_THAT(Lines(), ElementsAre(MatchesRegex(std::string(kTime) + "before"),
                                     MatchesRegex(std::string(kTime) + "after")));
}

TEST_F(SupportLogTest, StopsAtItsSizeWhenOlderFilesCannotBeMoved)
{
    // A file is moved neither over a folder nor over another file, and a folder that holds
    // something cannot be removed.
    auto const in_the_way = [this](int age) {
        return Directory() + QStringLiteral("/updater.%1.log/full").arg(age);
    };
    for (int age = 1; age < SupportLog::kFiles; ++age) {
        ASSERT_TRUE(QDir().mkpath(in_the_way(age)));
    }
    Output output;
    log_.Write(u"first");
    for (int entry = 0; entry < 40; ++entry) {
        log_.Write(QString(60'000, QLatin1Char('x')));
    }
    EXPECT_EQ(output.Take(), "");
    for (int age = 1; age < SupportLog::kFiles; ++age) {
        EXPECT_TRUE(QFileInfo(in_the_way(age)).isDir()) << age;
    }
    EXPECT_EQ(Files(), QStringList({QStringLiteral("updater.log")}));
    EXPECT_THAT(Lines().front(), EndsWith(" first"));
    EXPECT_EQ(Lines().size(), 17U);  // sixteen of the long ones fill the file
}

// ---- What is tapped ----

TEST_F(SupportLogTest, KeepsWhatGoesThroughQtsLogging)
{
    ExpectWarning(std::string("three"));
    ExpectWarning(std::string("four"));
    {
        SupportLogTap const tap(log_);
        qDebug() << "one" << 1;
        qInfo() << "two";
        qWarning() << "three";
        qCritical() << "four";
    }
    qDebug() << "after";
    EXPECT_THAT(Lines(), ElementsAre(EndsWith(" debug: one 1"), EndsWith(" info: two"),
                                     EndsWith(" warning: three"), EndsWith(" critical: four")));
}

TEST_F(SupportLogTest, LeavesQtsLoggingWhereItWent)
{
    static QStringList heard;
    heard.clear();
    auto* const before = qInstallMessageHandler(
        [](QtMsgType, QMessageLogContext const&, QString const& text) { heard.append(text); });
    {
        SupportLogTap const tap(log_);
        qWarning("during");
    }
    qWarning("after");
    qInstallMessageHandler(before);
    EXPECT_EQ(heard, QStringList({QStringLiteral("during"), QStringLiteral("after")}));
}

TEST_F(SupportLogTest, KeepsWhatTheSharedCodePrints)
{
    testing::internal::CaptureStdout();
    {
        SupportLogTap const tap(log_);
        kelvane::PrintToConsole("\nNACK received, command Erase");
    }
    kelvane::PrintToConsole(" after");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nNACK received, command Erase after");
    EXPECT_THAT(Lines(), ElementsAre(EndsWith(" output: NACK received, command Erase")));
}

TEST_F(SupportLogTest, TakesNothingThatQtSaysBecauseOfTheWritingItself)
{
    // Qt warns of such a name with each attempt to use it.
    SupportLog log(Directory() + QChar(u'\0'));
    EXPECT_EXIT(
        {
            alarm(20);  // an entry within an entry would wait for itself
            SupportLogTap const tap(log);
            log.Write(u"direct");
            qInfo("tapped");
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "Broken filename.*\n.*tapped");
}

TEST_F(SupportLogTest, KeepsTheLastWordsOfAProgramThatEndsOnThem)
{
    EXPECT_DEATH(
        {
            SupportLogTap const tap(log_);
            qFatal("beyond help");
        },
        "beyond help");
    EXPECT_THAT(Lines(), ElementsAre(EndsWith(" fatal: beyond help")));
}

}  // namespace
