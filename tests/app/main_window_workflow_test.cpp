// What the window shows as an update goes on, and what it asks of its backend.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QSignalSpy>
#include <thread>

#include "tests/app/window_fixture.h"

using namespace Qt::StringLiterals;
using testing::AllOf;
using testing::Each;
using testing::Ne;

namespace {

auto const kGrey =
    u"background-color: rgba(249, 249, 249,1); color: rgba(204, 204, 204, 1); border: none; "
    "border-radius: 3px;"_s;
auto const kBlack =
    u"background-color: rgba(249, 249, 249,1); color: rgba(0, 0, 0, 1); border: none; "
    "border-radius: 3px;"_s;
auto const kError = u"Error connecting to device \u2014 Disconnect device and repeat step 1-3"_s;

class MainWindowWorkflow : public WindowTest {
protected:
    void Click() { QTest::mouseClick(&Button(), Qt::LeftButton); }
    void ShowWindow()
    {
        window_->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
    }
    void Start()
    {
        FromBackendAndWait([](auto& backend) { Q_EMIT backend.UpdateStarted(); });
    }
    void Progress(int percent)
    {
        FromBackendAndWait([percent](auto& backend) { Q_EMIT backend.ProgressUpdate(percent); });
    }
    void Finish(bool status)
    {
        FromBackendAndWait([status](auto& backend) { Q_EMIT backend.UpdateFinished(status); });
    }
};

class MainWindowOnEachTransport : public MainWindowWorkflow,
                                  public testing::WithParamInterface<targetInterfaceType> {};

}  // namespace

TEST_F(MainWindowWorkflow, BeginsWaitingForAUnit)
{
    MakeWindow();

    EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, false, kGrey, 0, u""_s}));
}

TEST_P(MainWindowOnEachTransport, IsReadyWhenAUnitConnected)
{
    MakeWindow(GetParam());

    ReportStatus(ConnectionStatus::Connected);

    EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, true, kBlack, 0, u""_s}));
}

TEST_P(MainWindowOnEachTransport, WaitsAgainWhenTheUnitIsGone)
{
    MakeWindow(GetParam());
    ReportStatus(ConnectionStatus::Connected);

    ReportStatus(ConnectionStatus::Disconnected);

    EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, false, kGrey, 0, u""_s}));
}

TEST_P(MainWindowOnEachTransport, RefusesAWrongUnit)
{
    MakeWindow(GetParam());

    ReportStatus(ConnectionStatus::VerificationFailed);

    EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, false, kGrey, 0, kError}));
}

TEST_P(MainWindowOnEachTransport, ShowsAFailedUpdateUntilTheUnitIsGone)
{
    MakeWindow(GetParam());
    ReportStatus(ConnectionStatus::Connected);
    Start();
    Progress(40);

    Finish(false);
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kGrey, 40, kError}));

    ReportStatus(ConnectionStatus::Disconnected);
    EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, false, kGrey, 0, u""_s}));
}

TEST_P(MainWindowOnEachTransport, ResetsADoneBarWhenTheUnitIsGone)
{
    MakeWindow(GetParam());
    ReportStatus(ConnectionStatus::Connected);
    Start();
    Finish(true);
    ASSERT_EQ(Bar().value(), 100);

    ReportStatus(ConnectionStatus::Disconnected);

    EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, false, kGrey, 0, u""_s}));
}

TEST_P(MainWindowOnEachTransport, IgnoresAStatusOutsideTheEnumeration)
{
    MakeWindow(GetParam());
    ReportStatus(ConnectionStatus::Connected);
    auto const before = GetShown();

    ReportStatus(static_cast<ConnectionStatus>(3));

    EXPECT_EQ(GetShown(), before);
}

INSTANTIATE_TEST_SUITE_P(Transports, MainWindowOnEachTransport,
                         testing::Values(TargetUart, TargetUsb, TargetMcubootSerial),
                         [](auto const& row) { return std::to_string(row.param); });

TEST_F(MainWindowWorkflow, KeepsTheErrorTextOfAWrongUnitWhenTheNextOneConnects)
{
    MakeWindow();
    ReportStatus(ConnectionStatus::VerificationFailed);

    ReportStatus(ConnectionStatus::Connected);

    EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, true, kBlack, 0, kError}));
}

TEST_F(MainWindowWorkflow, ShowsAUartUpdateInPercent)
{
    MakeWindow(TargetUart);
    ReportStatus(ConnectionStatus::Connected);
    Button().click();

    Start();
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 0, u"%p%"_s}));
    Progress(73);
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 73, u"%p%"_s}));
    EXPECT_EQ(Bar().text(), u"73%"_s);
    Finish(true);
    EXPECT_EQ(GetShown(), (Shown{u"DONE"_s, false, kBlack, 100, u"%p%"_s}));
}

TEST_F(MainWindowWorkflow, ShowsAnMcubootUpdateWithoutText)
{
    MakeWindow(TargetMcubootSerial);
    ReportStatus(ConnectionStatus::Connected);
    Button().click();

    Start();
    Progress(73);
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 73, u""_s}));
    Finish(true);
    EXPECT_EQ(GetShown(), (Shown{u"DONE"_s, false, kBlack, 100, u""_s}));
}

TEST_F(MainWindowWorkflow, ShowsAUsbUpdateFirstErasingThenInPercent)
{
    MakeWindow(TargetUsb);
    ReportStatus(ConnectionStatus::Connected);
    Button().click();

    Start();
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 0, u""_s}));
    FromBackendAndWait([](auto& backend) { Q_EMIT backend.EraseStarted(); });
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 0, u"Erasing"_s}));
    Progress(99);
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 99, u"Erasing"_s}));
    FromBackendAndWait([](auto& backend) { Q_EMIT backend.EraseFinished(); });
    EXPECT_EQ(GetShown(), (Shown{u"UPDATING"_s, false, kBlack, 0, u"%p%"_s}));
    Progress(50);
    Finish(true);
    EXPECT_EQ(GetShown(), (Shown{u"DONE"_s, false, kBlack, 100, u"%p%"_s}));
}

TEST_F(MainWindowWorkflow, KeepsTheErrorTextDuringAUsbUpdateUntilItErases)
{
    MakeWindow(TargetUsb);
    ReportStatus(ConnectionStatus::VerificationFailed);
    ReportStatus(ConnectionStatus::Connected);

    Start();
    EXPECT_EQ(Bar().format(), kError);
    FromBackendAndWait([](auto& backend) { Q_EMIT backend.EraseStarted(); });
    EXPECT_EQ(Bar().format(), u"Erasing"_s);
}

TEST_F(MainWindowWorkflow, HearsOfErasingFromTheUsbTransportOnly)
{
    for (auto const type : {TargetUart, TargetMcubootSerial}) {
        MakeWindow(type);
        Progress(30);

        FromBackendAndWait([](auto& backend) {
            Q_EMIT backend.EraseStarted();
            Q_EMIT backend.EraseFinished();
        });

        EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, false, kGrey, 30, u""_s})) << type;
    }
}

TEST_F(MainWindowWorkflow, ResetsTheBarOnItsOwnProgressStart)
{
    MakeWindow();
    Progress(30);

    Q_EMIT window_->ProgressStart();

    EXPECT_EQ(Bar().value(), -1);
}

TEST_F(MainWindowWorkflow, AClickStartsOneUpdate)
{
    MakeWindow();
    ShowWindow();
    ReportStatus(ConnectionStatus::Connected);
    QSignalSpy const requests(window_.get(), &MainWindow::UpdateDevice);

    Click();

    EXPECT_EQ(requests.count(), 1);
    EXPECT_EQ(GetShown(), (Shown{u"UPDATE"_s, false, kBlack, 0, u""_s}));
    ASSERT_TRUE(WaitForCalls(u"update"_s, 1));
}

TEST_F(MainWindowWorkflow, ADoubleClickStartsOneUpdate)
{
    MakeWindow();
    ShowWindow();
    ReportStatus(ConnectionStatus::Connected);

    Click();
    QTest::mouseDClick(&Button(), Qt::LeftButton);
    Click();
    QTest::keyClick(&Button(), Qt::Key_Space);

    Q_EMIT window_->DisconnectFromDevice();
    ASSERT_TRUE(WaitForCalls(u"disconnect"_s, 1));
    EXPECT_EQ(record_->Events(), QStringList({u"update"_s, u"disconnect"_s}));
}

TEST_F(MainWindowWorkflow, AClickDoesNothingWhileNoUnitIsReady)
{
    MakeWindow();
    ShowWindow();

    Click();
    ReportStatus(ConnectionStatus::VerificationFailed);
    Click();

    Q_EMIT window_->DisconnectFromDevice();
    ASSERT_TRUE(WaitForCalls(u"disconnect"_s, 1));
    EXPECT_EQ(record_->Events(), QStringList({u"disconnect"_s}));
}

TEST_F(MainWindowWorkflow, TheButtonIsOffBeforeTheUpdateIsAskedFor)
{
    MakeWindow();
    ReportStatus(ConnectionStatus::Connected);
    bool enabled = true;
    QObject::connect(window_.get(), &MainWindow::UpdateDevice,
                     [&] { enabled = Button().isEnabled(); });

    Button().click();

    EXPECT_FALSE(enabled);
}

TEST_F(MainWindowWorkflow, AUnitCanBeUpdatedAgainAfterItReturned)
{
    MakeWindow();
    for (int i = 1; i <= 2; ++i) {
        ReportStatus(ConnectionStatus::Connected);
        Button().click();
        ASSERT_TRUE(WaitForCalls(u"update"_s, i));
        Start();
        Finish(i == 2);
        ReportStatus(ConnectionStatus::Disconnected);
    }

    EXPECT_EQ(record_->Count(u"update"_s), 2);
}

TEST_F(MainWindowWorkflow, AsksItsBackendOnTheWorkersThreadOnly)
{
    MakeWindow();
    auto* const gui_thread = QThread::currentThread();

    Q_EMIT window_->ConnectToDevice(u"ttyX"_s, {1, 2}, false);
    Q_EMIT window_->UpdateDevice();
    Q_EMIT window_->DisconnectFromDevice();

    ASSERT_TRUE(WaitForCalls(u"disconnect"_s, 1));
    EXPECT_EQ(record_->Events(),
              QStringList({u"connect \"ttyX\" [1 2] blindly"_s, u"update"_s, u"disconnect"_s}));
    EXPECT_NE(backend_->thread(), gui_thread);
    EXPECT_EQ(backend_->parent(), nullptr);
    EXPECT_THAT(record_->Threads(), AllOf(Each(backend_->thread()), Each(Ne(gui_thread))));
}

TEST_F(MainWindowWorkflow, IsChangedByItsBackendOnTheGuiThreadOnly)
{
    MakeWindow();
    auto* const gui_thread = QThread::currentThread();
    QList<QThread*> threads;
    QObject::connect(
        &Bar(), &QProgressBar::valueChanged, &Bar(),
        [&] { threads.append(QThread::currentThread()); }, Qt::DirectConnection);

    Progress(10);
    Finish(true);
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

TEST_F(MainWindowWorkflow, EndsOnlyAfterARunningUpdate)
{
    record_->holds_updates = true;
    MakeWindow();
    Q_EMIT window_->UpdateDevice();
    ASSERT_TRUE(WaitForCalls(u"update"_s, 1));
    QSemaphore window_gone;
    bool gone_too_early = true;
    std::thread unit([&] {
        gone_too_early = window_gone.tryAcquire(1, 300);
        record_->update_may_end.release();
    });

    window_.reset();

    window_gone.release();
    unit.join();
    EXPECT_FALSE(gone_too_early);
    EXPECT_EQ(record_->Events(), QStringList({u"update"_s, u"end of update"_s, u"destroyed"_s}));
}

TEST_F(MainWindowWorkflow, TakesItsBackendAlongAtItsEnd)
{
    MakeWindow();

    window_.reset();

    EXPECT_EQ(record_->Events(), QStringList({u"destroyed"_s}));
}
