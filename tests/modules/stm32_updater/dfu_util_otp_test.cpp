// Reading the one-time-programmable area through dfu-util and a file.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>

#include "tests/modules/stm32_updater/dfu_util_fixture.h"
#include "tests/support/collected_log.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace stm32_updater::test {
namespace {

constexpr unsigned kOtp = 0x1FFF7800;

// Takes away the right to write to `path`. Root may write everywhere, so root becomes another user
// meanwhile, to whom the folder above is opened.
class ReadOnlyFolder {
public:
    explicit ReadOnlyFolder(QString const& path) : path_(path.toLocal8Bit())
    {
        ::chmod(QFileInfo(path).path().toLocal8Bit().constData(), 0755);
        ::chmod(path_.constData(), 0555);
        if (was_root_) {
            constexpr uid_t kNobody = 65534;
            [[maybe_unused]] auto const result = ::seteuid(kNobody);
        }
    }
    ~ReadOnlyFolder()
    {
        if (was_root_) {
            [[maybe_unused]] auto const result = ::seteuid(0);
        }
        ::chmod(path_.constData(), 0755);
    }
    ReadOnlyFolder(ReadOnlyFolder const&) = delete;
    ReadOnlyFolder& operator=(ReadOnlyFolder const&) = delete;

    bool IsReadOnly() const { return ::eaccess(path_.constData(), W_OK) != 0; }

private:
    QByteArray path_;
    bool was_root_ = ::geteuid() == 0;
};

class DfuUtilOtp : public DfuUtilTest {
protected:
    // Makes the tool read these bytes from the unit.
    void UnitHas(QByteArray const& content)
    {
        tool_.Write(u"area"_s, content);
        tool_.Does("read_unit_as area\n");
    }

    bool FileIsLeft() const { return QFile::exists(tool_.OtpPath()); }

    std::string InTheWay() const
    {
        return "W: the OTP area is not read: " + tool_.OtpPath().toStdString() +
               " is in the way and cannot be removed";
    }
    std::string NotOfThisRun() const
    {
        return "W: the OTP area is not read: " + tool_.OtpPath().toStdString() +
               " was not written by this run of dfu-util";
    }
};

TEST_F(DfuUtilOtp, ReturnsWhatTheToolWroteAndRemovesTheFile)
{
    UnitHas(QByteArray("\x11\x47\x00\xFF", 4));

    EXPECT_THAT(updater_.GetOtp(0x1FFF7800, 512),
                ElementsAre(std::byte{0x11}, std::byte{0x47}, std::byte{0x00}, std::byte{0xFF}));

    EXPECT_EQ(tool_.Arguments(), QStringList({u"-d"_s, u"1209:0001"_s, u"-a"_s, u"2"_s, u"-s"_s,
                                              u"0x1fff7800:512"_s, u"-U"_s, tool_.OtpPath()}));
    EXPECT_FALSE(FileIsLeft());
}

TEST_F(DfuUtilOtp, TakesTheLengthFromTheFile)
{
    for (size_t const size : {size_t{0}, size_t{3}, size_t{3'000'000}}) {
        UnitHas(QByteArray(static_cast<qsizetype>(size), '\x55'));
        EXPECT_THAT(updater_.GetOtp(kOtp, 512), SizeIs(size));
        EXPECT_FALSE(FileIsLeft()) << size;
    }
}

// The third prints more than any pipe holds.
TEST_F(DfuUtilOtp, TakesTheFileHoweverTheToolEnds)
{
    tool_.Write(u"area"_s, "ab");
    for (auto const* commands :
         {"read_unit_as area; exit 74\n", "read_unit_as area; kill -s KILL $$\n",
          "head -c 5000000 /dev/zero; head -c 5000000 /dev/zero >&2; read_unit_as area\n"}) {
        tool_.Does(commands);
        EXPECT_THAT(updater_.GetOtp(kOtp, 512), SizeIs(2)) << commands;
    }
}

TEST_F(DfuUtilOtp, IsEmptyWithoutAToolOrAFile)
{
    CollectedLog const log;
    EXPECT_THAT(updater_.GetOtp(kOtp, 512), IsEmpty());
    tool_.Does("exit 74\n");
    EXPECT_THAT(updater_.GetOtp(kOtp, 512), IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(DfuUtilOtp, DoesNotRunTheToolIfSomethingElseIsInTheFilesPlace)
{
    tool_.Does("");
    auto const path = tool_.OtpPath();
    CollectedLog const log;
    ASSERT_TRUE(QDir().mkpath(path));
    EXPECT_THAT(updater_.GetOtp(kOtp, 512), IsEmpty()) << "a directory";
    ASSERT_TRUE(QDir().rmdir(path));
    ASSERT_EQ(mkfifo(path.toLocal8Bit().constData(), 0600), 0);
    EXPECT_THAT(updater_.GetOtp(kOtp, 512), IsEmpty()) << "a pipe, which nobody waits for";

    EXPECT_THAT(tool_.ProcessIds(), IsEmpty());
    EXPECT_THAT(log.Lines(), ElementsAre(InTheWay(), InTheWay()));
}

TEST_F(DfuUtilOtp, RemovesALinkButNotWhatItLeadsTo)
{
    tool_.Write(u"somebodys"_s, "data");
    UnitHas("ab");
    for (auto const& target : {u"somebodys"_s, u"nothing"_s}) {
        ASSERT_TRUE(QFile::link(tool_.FilePath(target), tool_.OtpPath()));

        EXPECT_THAT(updater_.GetOtp(kOtp, 512), SizeIs(2)) << target.toStdString();
    }
    EXPECT_EQ(tool_.Read(u"somebodys"_s), "data");
    EXPECT_FALSE(tool_.Has(u"nothing"_s));
}

// What somebody else may put in the file's place while the tool runs.
TEST_F(DfuUtilOtp, IgnoresAFileThatThisRunDidNotWrite)
{
    struct {
        char const* kind;
        QByteArray commands;
    } const rows[] = {
        {"link", "ln -s \"$here/area\" \"$last_argument\"\n"},
        {"dangling link", "ln -s \"$here/nothing\" \"$last_argument\"\n"},
        {"earlier file",
         "cp \"$here/area\" \"$here/old\"; touch -d '1 hour ago' \"$here/old\"\n"
         "mv \"$here/old\" \"$last_argument\"\n"},
        {"pipe", "mkfifo \"$last_argument\"\n"},
        {"folder", "mkdir \"$last_argument\"\n"},
    };
    tool_.Write(u"area"_s, "ab");
    for (auto const& [kind, commands] : rows) {
        tool_.Does(commands);
        CollectedLog const log;

        EXPECT_THAT(updater_.GetOtp(kOtp, 512), IsEmpty()) << kind;

        EXPECT_THAT(log.Lines(), ElementsAre(NotOfThisRun())) << kind;
        EXPECT_EQ(tool_.Read(u"area"_s), "ab") << kind;
        QFile::remove(tool_.OtpPath());
    }
    QDir().rmdir(tool_.OtpPath());
}

TEST_F(DfuUtilOtp, IgnoresAFileOfAnotherUser)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can make such a file";
    }
    tool_.Write(u"area"_s, "ab");
    tool_.Does("read_unit_as area; chown 65534 \"$last_argument\"\n");
    CollectedLog const log;

    EXPECT_THAT(updater_.GetOtp(kOtp, 512), IsEmpty());

    EXPECT_THAT(log.Lines(), ElementsAre(NotOfThisRun()));
}

TEST_F(DfuUtilOtp, RemovesTheFileOfAnEarlierRunBeforeTheToolRuns)
{
    tool_.Write(u"tmp/kelvane_otp.bin"_s, "the area of another unit");
    tool_.Does("[ -e \"$last_argument\" ] && echo >\"$here/still_there\"\nexit 74\n");

    EXPECT_THAT(updater_.GetOtp(kOtp, 512), IsEmpty());

    EXPECT_THAT(tool_.ProcessIds(), SizeIs(1));
    EXPECT_FALSE(tool_.Has(u"still_there"_s));
}

TEST_F(DfuUtilOtp, DoesNotRunTheToolWhenTheFileOfAnEarlierRunCannotBeRemoved)
{
    tool_.Write(u"tmp/kelvane_otp.bin"_s, "the area of another unit");
    tool_.Does("");
    ReadOnlyFolder const folder(QFileInfo(tool_.OtpPath()).path());
    if (!folder.IsReadOnly()) {
        GTEST_SKIP() << "this user may write everywhere";
    }
    ASSERT_TRUE(QFileInfo(tool_.OtpPath()).isFile());
    CollectedLog const log;

    EXPECT_THAT(updater_.GetOtp(kOtp, 512), IsEmpty());

    EXPECT_THAT(tool_.ProcessIds(), IsEmpty());
    EXPECT_THAT(log.Lines(), ElementsAre(InTheWay()));
}

TEST_F(DfuUtilOtp, TakesWhatIsThereWhenTheTimeIsUpAndEndsTheTool)
{
    EXPECT_EQ(DfuUtilTimes().otp_limit, 30000ms);
    struct {
        char const* commands;
        size_t size;
    } const rows[] = {
        {"read_unit_as area; exec cat \"$here/gate\"\n", 2},
        {"exec cat /dev/zero\n", 0},
        {"exec cat /dev/zero >&2\n", 0},
    };
    Stm32DfuUtilUpdater updater(nullptr, u"0483:df11"_s, tool_.Path(), {.otp_limit = 300ms});
    tool_.Write(u"area"_s, "ab");
    for (auto const& [commands, size] : rows) {
        tool_.Does(commands);
        QElapsedTimer timer;
        timer.start();

        EXPECT_THAT(updater.GetOtp(kOtp, 512), SizeIs(size)) << commands;

        EXPECT_GE(timer.elapsed(), 300) << commands;
        EXPECT_LT(timer.elapsed(), 10'000) << commands;
        EXPECT_FALSE(FileIsLeft()) << commands;
        EXPECT_NE(::kill(static_cast<pid_t>(tool_.ProcessIds().last()), 0), 0) << commands;
    }
}

TEST_F(DfuUtilOtp, LeavesARunningDownloadAlone)
{
    tool_.Does("printf 'Download [==] 42%%'; wait_for_test\n");
    ASSERT_TRUE(updater_.Update("fw.bin", 0));
    ASSERT_TRUE(signals_.WaitFor(u"42"_s));
    UnitHas("ab");

    EXPECT_THAT(updater_.GetOtp(kOtp, 512), SizeIs(2));

    tool_.LetGo();
    ASSERT_TRUE(signals_.WaitFor(u"100"_s));
    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s, u"erase finished"_s, u"42"_s,
                                           u"finished true"_s, u"100"_s}));
}

}  // namespace
}  // namespace stm32_updater::test
