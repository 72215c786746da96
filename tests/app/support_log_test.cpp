// The log for support: what it contains, how its size stays limited, and that it never disturbs the
// program.
#include "app/support_log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pwd.h>
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

using namespace Qt::StringLiterals;

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

class SupportLogTest : public testing::Test {
protected:
    QString Directory() const { return root_.filePath(u"state/updater"_s); }

    std::vector<std::string> Lines(QString const& file = u"updater.log"_s) const
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

// What this process prints while `run` runs.
template <typename Function>
std::string GetOutput(Function const& run)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    run();
    auto const output = testing::internal::GetCapturedStdout();
    return output + testing::internal::GetCapturedStderr();
}

// A disk on which no file of this process can grow beyond a size, in bytes.
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

TEST(LogDirectory, IsWhereTheSystemKeepsSuchFiles)
{
    auto const home = u"/home/ann"_s;
    EXPECT_EQ(GetLogDirectory(u"macOS"_s, home, u"/state"_s),
              u"/home/ann/Library/Logs/Kelvane Firmware Updater"_s);
    EXPECT_EQ(GetLogDirectory(u"debian"_s, home, u"/state"_s),
              u"/state/kelvane-firmware-updater"_s);
    for (auto const& not_absolute : {u""_s, u"state"_s}) {
        EXPECT_EQ(GetLogDirectory(u"debian"_s, home, not_absolute),
                  u"/home/ann/.local/state/kelvane-firmware-updater"_s);
    }
    EXPECT_EQ(GetLogDirectory(u"macOS"_s, u""_s, u"/state"_s), u""_s);
    EXPECT_EQ(GetLogDirectory(u"debian"_s, u""_s, u""_s), u""_s);
    EXPECT_EQ(GetLogDirectory(u"debian"_s, u""_s, u"/state"_s),
              u"/state/kelvane-firmware-updater"_s);
}

TEST(LogDirectory, IsBelowTheHomeFolderOfTheUserDatabaseIfTheVariableIsNoPath)
{
    auto const before = qgetenv("HOME");
    auto const registered = QFile::decodeName(::getpwuid(::getuid())->pw_dir);
    qputenv("HOME", "/home/ann");
    EXPECT_EQ(GetHomeDirectory(), u"/home/ann"_s);
    for (auto const* no_path : {"", "ann"}) {
        qputenv("HOME", no_path);
        EXPECT_EQ(GetHomeDirectory(), registered) << no_path;
    }
    qunsetenv("HOME");
    EXPECT_EQ(GetHomeDirectory(), registered);
    qputenv("HOME", before);
}

TEST_F(SupportLogTest, WritesNothingWithoutAFolder)
{
    auto const before = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(root_.path()));
    SupportLog log{QString()};
    log.Write(u"one");
    QDir::setCurrent(before);

    EXPECT_FALSE(QFile::exists(log.CurrentFile()));
    EXPECT_TRUE(QDir(root_.path()).isEmpty());
}

TEST_F(SupportLogTest, StampsEveryEntryIndentsItsFurtherLinesAndContinuesAnEarlierRun)
{
    log_.Write(u"one");
    SupportLog(Directory()).Write(u"\ntwo\nthree\n");
    EXPECT_THAT(Lines(), ElementsAre(MatchesRegex(std::string(kTime) + "one"),
                                     MatchesRegex(std::string(kTime) + "two"), "    three"));
    struct stat status = {};
    ASSERT_EQ(stat(log_.CurrentFile().toLocal8Bit().constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, mode_t{0600}) << "for its owner's eyes only";
}

TEST_F(SupportLogTest, KeepsTenFilesOfAMillionBytesAndCutsAnEntryThatIsTooLong)
{
    SupportLog other(root_.filePath(u"other"_s));
    other.Write(QString(2'000'000, QLatin1Char('x')));
    EXPECT_EQ(QFileInfo(other.CurrentFile()).size(), SupportLog::kEntrySize);

    auto const text = QString(50'000, QLatin1Char('x'));
    // Nineteen entries fill a file.
    for (int entry = 0; entry < 19 * 12; ++entry) {
        log_.Write(QString::number(entry) + text);
    }
    ASSERT_EQ(Files().size(), SupportLog::kFiles);
    for (auto const& file : Files()) {
        EXPECT_LE(QFileInfo(Directory(), file).size(), SupportLog::kFileSize);
    }
    EXPECT_THAT(Lines().back(), HasSubstr(" 227xxx"));
    EXPECT_THAT(Lines(u"updater.1.log"_s).back(), HasSubstr(" 208xxx"));
    EXPECT_THAT(Lines(u"updater.9.log"_s).front(), HasSubstr(" 38xxx"));
}

TEST_F(SupportLogTest, KeepsEntriesOfSeveralThreadsWhole)
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

TEST_F(SupportLogTest, IsSilentWhereItCannotBeWrittenAndWaitsForNoReaderOfAPipe)
{
    // Permissions do not stop root; a file in the folder's place does.
    QFile in_the_way(root_.filePath(u"state"_s));
    ASSERT_TRUE(in_the_way.open(QIODevice::WriteOnly));
    EXPECT_EQ(GetOutput([this] { log_.Write(u"lost"); }), "");
    EXPECT_EQ(in_the_way.size(), 0);

    ASSERT_TRUE(in_the_way.remove());
    log_.Write(u"kept");
    EXPECT_THAT(Lines(), ElementsAre(EndsWith(" kept")));

    ASSERT_TRUE(QFile::remove(log_.CurrentFile()));
    ASSERT_EQ(mkfifo(log_.CurrentFile().toLocal8Bit().constData(), 0600), 0);
    EXPECT_EQ(GetOutput([this] { SupportLog(Directory()).Write(u"lost"); }), "");
    EXPECT_EQ(Files(), QStringList());  // a pipe is not a regular file
}

TEST_F(SupportLogTest, IsSilentOnAFullDiskAndContinuesWhenThereIsRoomAgain)
{
    log_.Write(u"before");
    EXPECT_EQ(GetOutput([this] {
                  // Room for the beginning of an entry, and for none.
                  constexpr qint64 kRoom = 10;
                  FullDisk const disk(QFileInfo(log_.CurrentFile()).size() + kRoom);
                  log_.Write(u"lost");
                  log_.Write(u"lost");
              }),
              "");
    log_.Write(u"after");
    EXPECT_THAT(Lines(), ElementsAre(MatchesRegex(std::string(kTime) + "before"),
                                     MatchesRegex(std::string(kTime) + "after")));
}

TEST_F(SupportLogTest, StopsAtItsSizeWhenOlderFilesCannotBeMoved)
{
    // A file cannot be renamed to an existing name, and a folder with content cannot be removed.
    auto const in_the_way = [this](int age) {
        return Directory() + u"/updater.%1.log/full"_s.arg(age);
    };
    for (int age = 1; age < SupportLog::kFiles; ++age) {
        ASSERT_TRUE(QDir().mkpath(in_the_way(age)));
    }
    log_.Write(u"first");
    EXPECT_EQ(GetOutput([this] {
                  for (int entry = 0; entry < 40; ++entry) {
                      log_.Write(QString(60'000, QLatin1Char('x')));
                  }
              }),
              "");
    for (int age = 1; age < SupportLog::kFiles; ++age) {
        EXPECT_TRUE(QFileInfo(in_the_way(age)).isDir()) << age;
    }
    EXPECT_EQ(Files(), QStringList({u"updater.log"_s}));
    EXPECT_THAT(Lines().front(), EndsWith(" first"));
    EXPECT_EQ(Lines().size(), 17U);  // sixteen of the long ones fill the file
}

// ---- The tap ----

TEST_F(SupportLogTest, RecordsQtsLoggingAndPassesItOn)
{
    static QStringList heard;
    heard.clear();
    auto* const before = qInstallMessageHandler(
        [](QtMsgType, QMessageLogContext const&, QString const& text) { heard.append(text); });
    {
        SupportLogTap const tap(log_);
        qDebug() << "one" << 1;
        qInfo() << "two";
        qWarning() << "three";
        qCritical() << "four";
    }
    qWarning("after");
    qInstallMessageHandler(before);
    EXPECT_THAT(Lines(), ElementsAre(EndsWith(" debug: one 1"), EndsWith(" info: two"),
                                     EndsWith(" warning: three"), EndsWith(" critical: four")));
    EXPECT_EQ(heard, QStringList({u"one 1"_s, u"two"_s, u"three"_s, u"four"_s, u"after"_s}));
}

TEST_F(SupportLogTest, RecordsWhatTheSharedCodePrints)
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

TEST_F(SupportLogTest, CountsMessagesThatRepeatThemselves)
{
    auto const output = GetOutput([this] {
        SupportLogTap const tap(log_);
        for (int i = 0; i < 1000; ++i) {
            qInfo("silent");
        }
    });
    EXPECT_EQ(QString::fromStdString(output).count(u"silent"_s), 1000) << "elsewhere they stay";
    EXPECT_THAT(Lines(), ElementsAre(EndsWith(" info: silent"), EndsWith(" info: silent"),
                                     EndsWith(" (the line above came 998 more times)")));
}

TEST_F(SupportLogTest, HandsOverToItsListenerWhatItOnlyCounts)
{
    std::vector<std::string> heard;
    log_.SetListener([&](QStringView text) { heard.push_back(text.toString().toStdString()); });
    GetOutput([this] {
        SupportLogTap const tap(log_);
        for (int i = 0; i < 5; ++i) {
            qInfo("silent");
        }
    });
    log_.SetListener({});

    EXPECT_THAT(heard, ElementsAre("info: silent", "info: silent", "info: silent", "info: silent",
                                   "info: silent", "(the line above came 3 more times)"));
}

TEST_F(SupportLogTest, IgnoresMessagesThatTheWritingItselfCauses)
{
    // Qt warns about such a name at each attempt to use it.
    SupportLog log(Directory() + QChar(u'\0'));
    EXPECT_EXIT(
        {
            alarm(20);  // an entry within an entry would wait for itself
            SupportLogTap const tap(log);
            // More often than a message is written before it is only counted.
            for (int i = 0; i < 5; ++i) {
                log.Write(u"direct");
            }
            qInfo("tapped");
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "Broken filename.*\n.*tapped");
}

TEST_F(SupportLogTest, RecordsTheMessageThatEndsTheProgram)
{
    EXPECT_DEATH(
        {
            SupportLogTap const tap(log_);
            qFatal("fatal error");
        },
        "fatal error");
    EXPECT_THAT(Lines(), ElementsAre(EndsWith(" fatal: fatal error")));
}

}  // namespace
