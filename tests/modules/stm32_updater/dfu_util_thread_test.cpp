// The engine that runs dfu-util on a thread of its own: where its parts live, and how the end of
// the thread waits for a tool that is writing.
#include <gmock/gmock.h>

#include <QFile>
#include <QSemaphore>
#include <QThread>
#include <thread>

#include "tests/modules/stm32_updater/dfu_util_fixture.h"

using namespace Qt::StringLiterals;

namespace stm32_updater::test {
namespace {

class DfuUtilOnAThread : public DfuUtilTest {
protected:
    DfuUtilOnAThread()
    {
        updater_.moveToThread(&thread_);
        thread_.start();
    }
    ~DfuUtilOnAThread() override
    {
        tool_.LetGo();
        EndThread();
    }

    void StartDownload()
    {
        QMetaObject::invokeMethod(
            &updater_, [this] { updater_.Update("fw.bin", 0); }, Qt::BlockingQueuedConnection);
    }

    void EndThread()
    {
        thread_.quit();
        thread_.wait();
    }

    QThread thread_;
};

TEST_F(DfuUtilOnAThread, TakesItsProcessAlongAndEmitsItsSignalsThere)
{
    ASSERT_EQ(updater_.findChildren<QProcess*>().size(), 1);
    EXPECT_EQ(updater_.findChild<QProcess*>()->thread(), &thread_);
    tool_.Does("printf 'Download [==] 42%%'; wait_for_test\n");
    QList<QThread*> threads;
    auto const note = [&threads] { threads.append(QThread::currentThread()); };
    QObject::connect(&updater_, &Stm32DfuUtilUpdater::ProgressUpdate, &updater_, note);
    QObject::connect(&updater_, &Stm32DfuUtilUpdater::UpdateFinished, &updater_, note);
    StartDownload();
    ASSERT_TRUE(signals_.WaitFor(u"42"_s));
    tool_.LetGo();
    ASSERT_TRUE(signals_.WaitFor(u"100"_s));

    EndThread();

    EXPECT_EQ(threads, QList<QThread*>({&thread_, &thread_, &thread_}));
}

// The tool prints more than any pipe holds after the thread has begun to end.
TEST_F(DfuUtilOnAThread, EndsOnlyWhenTheToolHasWritten)
{
    tool_.Does("wait_for_test; head -c 20000000 /dev/zero; echo >\"$here/written\"\n");
    StartDownload();
    QSemaphore thread_gone;
    bool gone_too_early = true;
    std::thread unit([&] {
        gone_too_early = thread_gone.tryAcquire(1, 300);
        tool_.LetGo();
    });

    EndThread();

    EXPECT_TRUE(tool_.Has(u"written"_s));
    thread_gone.release();
    unit.join();
    EXPECT_FALSE(gone_too_early);
    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s, u"finished true"_s}));
}

TEST_F(DfuUtilOnAThread, ReportsAToolThatIsKilledWhileTheThreadEnds)
{
    tool_.Does("wait_for_test; kill -s KILL $$\n");
    StartDownload();
    tool_.LetGo();

    EndThread();

    EXPECT_EQ(signals_.All(), QStringList({u"erase started"_s, u"finished false"_s}));
}

TEST_F(DfuUtilOnAThread, EndsAtOnceAfterADownloadAndWithoutATool)
{
    tool_.Does("");
    StartDownload();
    ASSERT_TRUE(signals_.WaitFor(u"100"_s));
    ASSERT_TRUE(QFile::remove(tool_.Path()));
    StartDownload();

    EndThread();

    EXPECT_EQ(signals_.All(),
              QStringList({u"erase started"_s, u"finished true"_s, u"100"_s, u"erase started"_s}));
}

}  // namespace
}  // namespace stm32_updater::test
