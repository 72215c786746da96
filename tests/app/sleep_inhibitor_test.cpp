// Keeping the computer awake: the command that each system gets, and what becomes of its process. A
// stand-in takes the tool's place.
#include "app/sleep_inhibitor.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>
#include <algorithm>

#include "tests/support/collected_log.h"
#include "tests/support/stand_in_tool.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int kPatience = 15'000;  // milliseconds
constexpr qint64 kPrompt =
    5'000;  // milliseconds; a busy machine stays below, a QProcess's 30 s do not

StayAwakeCommand const kMacosCommand{u"/usr/bin/caffeinate"_s, {u"-i"_s, u"-w"_s, u"42"_s}};
StayAwakeCommand const kLinuxCommand{
    u"systemd-inhibit"_s,
    {u"--what=idle:sleep"_s, u"--who=Kelvane firmware updater"_s,
     u"--why=A unit's firmware is being updated"_s, u"--mode=block"_s, u"cat"_s}};

// Does as caffeinate does with "-i -w ID", and as systemd-inhibit does with options and a command.
constexpr auto kTool = R"(
if [ "$1" = -i ]; then
    echo >"$here/holds"
    exec tail -s 0.02 --pid="$last_argument" -f /dev/null
fi
while [ "${1#--}" != "$1" ]; do shift; done
exec 3<&0  # a command in the background gets no input by itself
"$@" <&3 &
echo $! >>"$here/process_ids"
echo >"$here/holds"
wait
)";

// Whether the process is there, even if only as a zombie of this one. Those of others do not count:
// it is up to the system when they go.
bool IsThere(qint64 id)
{
    QFile stat(u"/proc/%1/stat"_s.arg(id));
    if (!stat.open(QIODevice::ReadOnly)) {
        return false;
    }
    auto const line = stat.readAll();
    auto const state_and_parent = line.mid(line.lastIndexOf(')') + 2).split(' ');
    return state_and_parent.at(0) != "Z" || state_and_parent.at(1).toInt() == getpid();
}

class SleepInhibitorTest : public testing::Test {
protected:
    // The system's command for this process, with the stand-in in its tool's place.
    StayAwakeCommand Command(char const* product_type) const
    {
        auto command = GetStayAwakeCommand(QString::fromLatin1(product_type), getpid());
        command.program = tool_.Path();
        return command;
    }

    bool WaitUntilHeld(qsizetype runs = 1) const
    {
        return QTest::qWaitFor(
            [&] { return tool_.Has(u"holds"_s) && tool_.ProcessIds().size() >= runs; }, kPatience);
    }

    bool WaitUntilNothingIsLeft() const
    {
        return QTest::qWaitFor([&] { return std::ranges::none_of(tool_.ProcessIds(), IsThere); },
                               kPatience);
    }

    CollectedLog log_;
    StandInTool tool_;
};

class StayingAwake : public SleepInhibitorTest, public testing::WithParamInterface<char const*> {
protected:
    StayingAwake() { tool_.Does(kTool); }
};

}  // namespace

TEST(StayAwakeCommand, IsThatOfTheSystem)
{
    std::pair<QString, StayAwakeCommand> const rows[] = {
        {u"macos"_s, kMacosCommand},  {u"macOS"_s, kMacosCommand},   {u"debian"_s, kLinuxCommand},
        {u"fedora"_s, kLinuxCommand}, {u"windows"_s, kLinuxCommand},
    };
    for (auto const& [product_type, command] : rows) {
        EXPECT_EQ(GetStayAwakeCommand(product_type, 42), command) << product_type.toStdString();
    }
}

TEST_P(StayingAwake, LastsUntilItIsReleasedWithOneProcessHoweverOftenItIsHeld)
{
    auto inhibitor = MakeSleepInhibitor(Command(GetParam()));
    inhibitor->Hold();
    ASSERT_TRUE(WaitUntilHeld());
    auto const processes = tool_.ProcessIds();
    inhibitor->Hold();
    EXPECT_TRUE(std::ranges::all_of(processes, IsThere));

    inhibitor->Release();
    EXPECT_TRUE(WaitUntilNothingIsLeft());
    EXPECT_EQ(tool_.ProcessIds(), processes);

    inhibitor->Hold();
    ASSERT_TRUE(WaitUntilHeld(2 * processes.size()));
    inhibitor.reset();
    EXPECT_TRUE(WaitUntilNothingIsLeft());
}

TEST_P(StayingAwake, EndsWhenTheProgramIsKilled)
{
    auto const holds = tool_.FilePath(u"holds"_s);
    ASSERT_EQ(mkfifo(holds.toLocal8Bit().constData(), S_IRUSR | S_IWUSR), 0);
    auto const program = fork();
    if (program == 0) {
        alarm(kPatience / 1000);
        auto const inhibitor = MakeSleepInhibitor(Command(GetParam()));
        inhibitor->Hold();
        QFile(holds).open(QIODevice::ReadOnly);  // returns when the tool has opened it, too
        raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(program, &status, 0), program);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);

    ASSERT_FALSE(tool_.ProcessIds().isEmpty());
    EXPECT_TRUE(WaitUntilNothingIsLeft());
}

INSTANTIATE_TEST_SUITE_P(EverySystem, StayingAwake, testing::Values("macos", "debian"),
                         [](auto const& row) { return std::string(row.param); });

TEST_F(SleepInhibitorTest, WithAToolThatDoesNotWorkDisturbsNobodyAndLeavesNothingBehind)
{
    constexpr char const* kMissing = nullptr;
    for (auto const* commands :
         {kMissing, "exit 1\n", "exec yes\n", "trap '' TERM HUP INT PIPE\nwait_for_test\n"}) {
        SCOPED_TRACE(commands == kMissing ? "missing" : commands);
        if (commands != kMissing) {
            tool_.Does(commands);
        }
        QElapsedTimer timer;
        timer.start();
        {
            auto const inhibitor = MakeSleepInhibitor(Command("debian"));
            for (int update = 0; update < 2; ++update) {
                inhibitor->Hold();
                QTest::qWait(0);
                inhibitor->Release();
                EXPECT_TRUE(WaitUntilNothingIsLeft());
            }
            inhibitor->Hold();
        }
        EXPECT_LT(timer.elapsed(), kPrompt);
        EXPECT_TRUE(WaitUntilNothingIsLeft());
    }
    EXPECT_THAT(log_.Lines(), testing::IsEmpty());
}

TEST_F(SleepInhibitorTest, LeavesNoZombieOfAToolThatEndsAtOnce)
{
    tool_.Does("echo >\"$here/holds\"\n");
    auto const inhibitor = MakeSleepInhibitor(Command("debian"));
    inhibitor->Hold();
    ASSERT_TRUE(WaitUntilHeld());

    EXPECT_TRUE(WaitUntilNothingIsLeft());
}

TEST_F(SleepInhibitorTest, DiscardsWhatTheToolPrints)
{
    tool_.Does(
        "outputs=$(readlink /proc/$$/fd/1 /proc/$$/fd/2)\n"
        "echo \"$outputs\" >\"$here/outputs\"; echo >\"$here/holds\"\n");
    auto const inhibitor = MakeSleepInhibitor(Command("debian"));
    inhibitor->Hold();
    ASSERT_TRUE(WaitUntilHeld());

    EXPECT_EQ(tool_.Read(u"outputs"_s), "/dev/null\n/dev/null\n");
}

TEST_F(SleepInhibitorTest, LeavesAToolThatTakesItsTimeToTheEventLoop)
{
    tool_.Does(kTool);
    for (int update = 0; update < 3; ++update) {
        auto inhibitor = MakeSleepInhibitor(Command("debian"), 0ms);
        inhibitor->Hold();
        ASSERT_TRUE(WaitUntilHeld(2 * (update + 1)));

        inhibitor.reset();

        EXPECT_TRUE(WaitUntilNothingIsLeft());
    }
    EXPECT_THAT(log_.Lines(), testing::IsEmpty());
}
