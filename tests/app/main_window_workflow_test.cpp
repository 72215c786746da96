// What the window shows during an update, and what it requests of its backend.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/app/window_fixture.h"

using namespace Qt::StringLiterals;
using testing::AllOf;
using testing::Each;
using testing::Ne;

namespace {

class MainWindowWorkflow : public WindowTest {
protected:
    // What the backend reports, and what the window shows from then on.
    struct Step {
        std::function<void()> report;
        Shown shown;
    };

    void ExpectSteps(targetInterfaceType type, std::vector<Step> const& steps)
    {
        MakeWindow(type);
        for (size_t i = 0; i < steps.size(); ++i) {
            steps[i].report();
            EXPECT_EQ(GetShown(), steps[i].shown) << "transport " << type << ", step " << i;
        }
    }

    // The steps.
    std::function<void()> Status(int status)
    {
        return [=, this] { ReportStatus(static_cast<ConnectionStatus>(status)); };
    }
    std::function<void()> Progress(int percent)
    {
        return [=, this] { ReportProgress(percent); };
    }
    std::function<void()> Finish(bool status)
    {
        return [=, this] { FinishUpdate(status); };
    }
    std::function<void()> const nothing = [] {};
    std::function<void()> const connect = Status(0);
    std::function<void()> const disconnect = Status(1);
    std::function<void()> const refuse = Status(2);
    std::function<void()> const click = [this] { Button().click(); };
    std::function<void()> const start = [this] { StartUpdate(); };
    std::function<void()> const erase = [this] { StartErase(); };
    std::function<void()> const erased = [this] { FinishErase(); };

    void Click() { QTest::mouseClick(&Button(), Qt::LeftButton); }

    // What the backend was asked for, up to a last request to disconnect.
    QStringList TakeRequests()
    {
        Q_EMIT window_->DisconnectFromDevice();
        EXPECT_TRUE(WaitForCalls(u"disconnect"_s, 1));
        auto requests = record_->Events();
        requests.removeLast();
        return requests;
    }

    QString const kGrey = GetButtonStyleSheet(ButtonStyle::Disabled);
    QString const kBlack = GetButtonStyleSheet(ButtonStyle::Ready);
    Shown const kWaiting{u"UPDATE"_s, false, kGrey, 0, u""_s};
};

}  // namespace

TEST_F(MainWindowWorkflow, FollowsTheConnectionAndShowsAResultUntilTheUnitIsGone)
{
    Shown const ready{u"UPDATE"_s, true, kBlack, 0, u""_s};
    for (auto const type : {TargetUart, TargetUsb, TargetMcubootSerial}) {
        auto const bar = type == TargetUart ? u"%p%"_s : u""_s;
        ExpectSteps(type, {
                              {nothing, kWaiting},
                              {connect, ready},
                              {Status(3), ready},
                              {disconnect, kWaiting},
                              {refuse, {u"UPDATE"_s, false, kGrey, 0, kErrorText}},
                              {connect, {u"UPDATE"_s, true, kBlack, 0, kErrorText}},
                              {disconnect, kWaiting},
                              {connect, ready},
                              {click, {u"UPDATE"_s, false, kBlack, 0, u""_s}},
                              {start, {u"UPDATING"_s, false, kBlack, 0, bar}},
                              {Progress(40), {u"UPDATING"_s, false, kBlack, 40, bar}},
                              {Finish(false), {u"UPDATING"_s, false, kGrey, 40, kErrorText}},
                              {disconnect, kWaiting},
                              {connect, ready},
                              {click, {u"UPDATE"_s, false, kBlack, 0, u""_s}},
                              {start, {u"UPDATING"_s, false, kBlack, 0, bar}},
                              {Progress(73), {u"UPDATING"_s, false, kBlack, 73, bar}},
                              {Finish(true), {u"DONE"_s, false, kBlack, 100, bar}},
                              {disconnect, kWaiting},
                          });
    }
}

TEST_F(MainWindowWorkflow, ShowsAUsbUpdateFirstErasingThenInPercent)
{
    ExpectSteps(TargetUsb, {
                               {refuse, {u"UPDATE"_s, false, kGrey, 0, kErrorText}},
                               {connect, {u"UPDATE"_s, true, kBlack, 0, kErrorText}},
                               {click, {u"UPDATE"_s, false, kBlack, 0, kErrorText}},
                               {start, {u"UPDATING"_s, false, kBlack, 0, kErrorText}},
                               {erase, {u"UPDATING"_s, false, kBlack, 0, u"Erasing"_s}},
                               {Progress(99), {u"UPDATING"_s, false, kBlack, 99, u"Erasing"_s}},
                               {erased, {u"UPDATING"_s, false, kBlack, 0, u"%p%"_s}},
                               {Progress(50), {u"UPDATING"_s, false, kBlack, 50, u"%p%"_s}},
                               {Finish(true), {u"DONE"_s, false, kBlack, 100, u"%p%"_s}},
                           });
    for (auto const type : {TargetUart, TargetMcubootSerial}) {
        Shown const same{u"UPDATE"_s, false, kGrey, 30, u""_s};
        ExpectSteps(type, {{Progress(30), same}, {erase, same}, {erased, same}});
    }
}

TEST_F(MainWindowWorkflow, ResetsTheBarOnItsOwnProgressStart)
{
    MakeWindow();
    StartUpdate();
    ReportProgress(30);
    EXPECT_EQ(Bar().text(), u"30%"_s);
    Q_EMIT window_->ProgressStart();
    EXPECT_EQ(Bar().value(), -1);
}

TEST_F(MainWindowWorkflow, StartsOneUpdateHoweverOftenTheButtonIsClickedAndNoneWithoutAUnit)
{
    MakeWindow();
    window_->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
    Click();
    ReportStatus(ConnectionStatus::VerificationFailed);
    Click();
    ReportStatus(ConnectionStatus::Disconnected);
    ReportStatus(ConnectionStatus::Connected);
    EXPECT_EQ(record_->Events(), QStringList());

    Click();
    EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, false, kBlack, 0, u""_s}));
    QTest::mouseDClick(&Button(), Qt::LeftButton);
    Click();
    QTest::keyClick(&Button(), Qt::Key_Space);

    EXPECT_EQ(TakeRequests(), QStringList({u"update"_s}));
}

TEST_F(MainWindowWorkflow, DisablesTheButtonBeforeItRequestsTheUpdate)
{
    MakeWindow();
    ReportStatus(ConnectionStatus::Connected);
    bool enabled = true;
    QObject::connect(window_.get(), &MainWindow::UpdateDevice,
                     [&] { enabled = Button().isEnabled(); });

    Button().click();

    EXPECT_FALSE(enabled);
}

TEST_F(MainWindowWorkflow, UpdatesAUnitAgainAfterItWasGone)
{
    MakeWindow();
    for (int i = 1; i <= 2; ++i) {
        ReportStatus(ConnectionStatus::Connected);
        Button().click();
        ASSERT_TRUE(WaitForCalls(u"update"_s, i));
        StartUpdate();
        FinishUpdate(i == 2);
        ReportStatus(ConnectionStatus::Disconnected);
    }

    EXPECT_EQ(TakeRequests(), QStringList({u"update"_s, u"update"_s}));
}

TEST_F(MainWindowWorkflow, CallsItsBackendOnTheWorkerThreadOnly)
{
    MakeWindow();
    auto* const gui_thread = QThread::currentThread();

    Q_EMIT window_->ConnectToDevice(u"ttyX"_s, {1, 2}, false);
    Q_EMIT window_->UpdateDevice();

    EXPECT_EQ(TakeRequests(), QStringList({u"connect \"ttyX\" [1 2] blindly"_s, u"update"_s}));
    EXPECT_NE(backend_->thread(), gui_thread);
    EXPECT_EQ(backend_->parent(), nullptr);
    EXPECT_THAT(record_->Threads(), AllOf(Each(backend_->thread()), Each(Ne(gui_thread))));
}

TEST_F(MainWindowWorkflow, ChangesOnTheGuiThreadOnly)
{
    MakeWindow();
    auto* const gui_thread = QThread::currentThread();
    QList<QThread*> threads;
    QObject::connect(
        &Bar(), &QProgressBar::valueChanged, &Bar(),
        [&] { threads.append(QThread::currentThread()); }, Qt::DirectConnection);

    ReportProgress(10);
    FinishUpdate(true);
    ReportStatus(ConnectionStatus::Disconnected);

    EXPECT_EQ(threads, QList<QThread*>({gui_thread, gui_thread, gui_thread}));
}

TEST_F(MainWindowWorkflow, RequestsDuringAnUpdateWaitForItsEnd)
{
    record_->holds_updates = true;
    MakeWindow();
    Q_EMIT window_->UpdateDevice();
    ASSERT_TRUE(WaitForCalls(u"update"_s, 1));

    Q_EMIT window_->DisconnectFromDevice();
    Q_EMIT window_->ConnectToDevice(u"ttyX"_s, {}, true);
    record_->update_may_end.release();

    ASSERT_TRUE(WaitForCalls(u"connect"_s, 1));
    EXPECT_EQ(record_->Events(), QStringList({u"update"_s, u"end of update"_s, u"disconnect"_s,
                                              u"connect \"ttyX\" [] verify"_s}));
}

TEST_F(MainWindowWorkflow, ItsEndWaitsForARunningUpdate)
{
    record_->holds_updates = true;
    MakeWindow();
    Q_EMIT window_->UpdateDevice();
    ASSERT_TRUE(WaitForCalls(u"update"_s, 1));
    QSemaphore window_gone;
    bool gone_too_early = true;
    std::thread unit([&] {
        gone_too_early = window_gone.tryAcquire(1, 50);
        record_->update_may_end.release();
    });

    window_.reset();

    window_gone.release();
    unit.join();
    EXPECT_FALSE(gone_too_early);
    EXPECT_EQ(record_->Events(), QStringList({u"update"_s, u"end of update"_s, u"destroyed"_s}));
}
