// A tool that does not end at once when it is killed: the caller goes on without it.
#include "modules/stm32_updater/child_process.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <QPointer>
#include <QTest>

#include "tests/support/stand_in_tool.h"

using namespace std::chrono_literals;

namespace stm32_updater::test {
namespace {

TEST(ChildProcess, IsKilledAndDestroyedWithItsOwner)
{
    StandInTool tool;
    tool.Does("wait_for_test\n");
    auto process = MakeChildProcess();
    QPointer const watched(process.get());
    process->start(tool.Path(), {});
    ASSERT_TRUE(process->waitForStarted());
    auto const id = static_cast<pid_t>(process->processId());

    process.reset();

    EXPECT_TRUE(watched.isNull());
    EXPECT_NE(::kill(id, 0), 0);
}

// Without time to end, nearly every process looks like one that the system keeps.
TEST(ChildProcess, IsLeftToTheEventLoopIfItDoesNotEndInTime)
{
    StandInTool tool;
    tool.Does("wait_for_test\n");
    int left = 0;
    for (int run = 0; run < 5; ++run) {
        auto process = MakeChildProcess(0ms);
        QPointer const watched(process.get());
        process->start(tool.Path(), {});
        ASSERT_TRUE(process->waitForStarted());

        process.reset();

        left += watched.isNull() ? 0 : 1;
        EXPECT_TRUE(QTest::qWaitFor([&] { return watched.isNull(); }, 15'000));
    }
    EXPECT_GT(left, 0);
}

}  // namespace
}  // namespace stm32_updater::test
