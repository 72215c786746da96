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

auto const kError = u"Error connecting to device \u2014 Disconnect device and repeat step 1-3"_s;

class MainWindowWorkflow : public WindowTest {
protected:
    using Transports = std::initializer_list<targetInterfaceType>;
    static constexpr Transports kTransports{TargetUart, TargetUsb, TargetMcubootSerial};

    void Click() { QTest::mouseClick(&Button(), Qt::LeftButton); }

    void ShowWindow()
    {
        window_->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
    }

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

TEST_F(MainWindowWorkflow, FollowsTheStatusOfTheConnectionOnEveryTransport)
{
    for (auto const type : kTransports) {
        SCOPED_TRACE(type);
        MakeWindow(type);
        EXPECT_EQ(GetShown(), kWaiting);

        ReportStatus(ConnectionStatus::Connected);
        EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, true, kBlack, 0, u""_s}));

        ReportStatus(static_cast<ConnectionStatus>(3));
        EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, true, kBlack, 0, u""_s}));

        ReportStatus(ConnectionStatus::Disconnected);
        EXPECT_EQ(GetShown(), kWaiting);

        ReportStatus(ConnectionStatus::VerificationFailed);
        EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, false, kGrey, 0, kError}));

        ReportStatus(ConnectionStatus::Connected);
        EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, true, kBlack, 0, kError}));
    }
}

TEST_F(MainWindowWorkflow, ShowsTheResultUntilTheUnitIsGone)
{
    for (auto const type : kTransports) {
        SCOPED_TRACE(type);
        MakeWindow(type);
        ReportStatus(ConnectionStatus::Connected);
        StartUpdate();
        ReportProgress(40);
        FinishUpdate(false);
        EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kGrey, 40, kError}));

        ReportStatus(ConnectionStatus::Disconnected);
        EXPECT_EQ(GetShown(), kWaiting);

        ReportStatus(ConnectionStatus::Connected);
        StartUpdate();
        FinishUpdate(true);
        EXPECT_EQ(Bar().value(), 100);

        ReportStatus(ConnectionStatus::Disconnected);
        EXPECT_EQ(GetShown(), kWaiting);
    }
}

TEST_F(MainWindowWorkflow, ShowsAUartUpdateInPercent)
{
    MakeWindow(TargetUart);
    ReportStatus(ConnectionStatus::Connected);
    Button().click();

    StartUpdate();
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 0, u"%p%"_s}));
    ReportProgress(73);
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 73, u"%p%"_s}));
    EXPECT_EQ(Bar().text(), u"73%"_s);
    FinishUpdate(true);
    EXPECT_EQ(GetShown(), (Shown{u"DONE"_s, false, kBlack, 100, u"%p%"_s}));
}

TEST_F(MainWindowWorkflow, ShowsAnMcubootUpdateWithoutText)
{
    MakeWindow(TargetMcubootSerial);
    ReportStatus(ConnectionStatus::Connected);
    Button().click();

    StartUpdate();
    ReportProgress(73);
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 73, u""_s}));
    FinishUpdate(true);
    EXPECT_EQ(GetShown(), (Shown{u"DONE"_s, false, kBlack, 100, u""_s}));
}

TEST_F(MainWindowWorkflow, ShowsAUsbUpdateFirstErasingThenInPercent)
{
    MakeWindow(TargetUsb);
    ReportStatus(ConnectionStatus::VerificationFailed);
    ReportStatus(ConnectionStatus::Connected);
    Button().click();

    StartUpdate();
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 0, kError}));
    StartErase();
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 0, u"Erasing"_s}));
    ReportProgress(99);
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 99, u"Erasing"_s}));
    FinishErase();
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 0, u"%p%"_s}));
    ReportProgress(50);
    FinishUpdate(true);
    EXPECT_EQ(GetShown(), (Shown{u"DONE"_s, false, kBlack, 100, u"%p%"_s}));
}

TEST_F(MainWindowWorkflow, ShowsAnEraseOnTheUsbTransportOnly)
{
    for (auto const type : {TargetUart, TargetMcubootSerial}) {
        MakeWindow(type);
        ReportProgress(30);

        StartErase();
        FinishErase();

        EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, false, kGrey, 30, u""_s})) << type;
    }
}

TEST_F(MainWindowWorkflow, ResetsTheBarOnItsOwnProgressStart)
{
    MakeWindow();
    ReportProgress(30);

    Q_EMIT window_->ProgressStart();

    EXPECT_EQ(Bar().value(), -1);
}

TEST_F(MainWindowWorkflow, StartsOneUpdateHoweverOftenTheButtonIsClicked)
{
    MakeWindow();
    ShowWindow();
    ReportStatus(ConnectionStatus::Connected);

    Click();
    EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, false, kBlack, 0, u""_s}));
    QTest::mouseDClick(&Button(), Qt::LeftButton);
    Click();
    QTest::keyClick(&Button(), Qt::Key_Space);

    EXPECT_EQ(TakeRequests(), QStringList({u"update"_s}));
}

TEST_F(MainWindowWorkflow, IgnoresClicksWhileNoUnitIsReady)
{
    MakeWindow();
    ShowWindow();

    Click();
    ReportStatus(ConnectionStatus::VerificationFailed);
    Click();

    EXPECT_EQ(TakeRequests(), QStringList());
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

TEST_F(MainWindowWorkflow, DestroysItsBackend)
{
    MakeWindow();

    window_.reset();

    EXPECT_EQ(record_->Events(), QStringList({u"destroyed"_s}));
}
