// The USB backend over a stand-in for dfu-util.
#include "updater/usb_firmware_updater.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QProcess>
#include <QSemaphore>
#include <QTest>
#include <QThread>
#include <memory>

#include "tests/support/stand_in_tool.h"

using namespace Qt::StringLiterals;
using stm32_updater::Stm32DfuUtilUpdater;
using testing::Each;

namespace {

constexpr int kPatience = 15'000;  // milliseconds
constexpr uint8_t kModel = 0x79;

class UsbBackend : public testing::Test {
protected:
    void MakeBackend(QString const& fw_target_type = {})
    {
        backend_ =
            std::make_unique<UsbFirmwareUpdater>(u"/images/fw.bin"_s, tool_.Path(), 0x08004000,
                                                 0x1FFF7800, 512, fw_target_type, nullptr);
        Note(&FirmwareUpdaterBase::UpdateStarted, u"started"_s);
        Note(&FirmwareUpdaterBase::EraseStarted, u"erase started"_s);
        Note(&FirmwareUpdaterBase::EraseFinished, u"erase finished"_s);
        QObject::connect(backend_.get(), &FirmwareUpdaterBase::ProgressUpdate,
                         [this](int percent) { signals_.append(QString::number(percent)); });
        QObject::connect(backend_.get(), &FirmwareUpdaterBase::UpdateFinished, [this](bool ok) {
            signals_.append(ok ? u"finished true"_s : u"finished false"_s);
        });
        QObject::connect(backend_.get(), &FirmwareUpdaterBase::UpdateConnectionStatus,
                         [this](ConnectionStatus status) {
                             signals_.append(u"status %1"_s.arg(static_cast<int>(status)));
                         });
    }

    // A tool that gives an OTP area with this model's record in its first place.
    void ToolReadsModel(uint8_t model)
    {
        QByteArray area(512, '\xFF');
        area.replace(0, 5, QByteArray("\x11\x47\x23\x01", 4) + static_cast<char>(model));
        tool_.Write(u"area"_s, area);
        tool_.Does("read_unit_as area\n");
    }

    bool WaitForSignal(QString const& signal)
    {
        return QTest::qWaitFor([&] { return signals_.contains(signal); }, kPatience);
    }

    StandInTool tool_;
    QStringList signals_;
    std::unique_ptr<UsbFirmwareUpdater> backend_;

private:
    template <typename Signal>
    void Note(Signal signal, QString const& name)
    {
        QObject::connect(backend_.get(), signal, [this, name] { signals_.append(name); });
    }
};

QString const kConnected = u"status 0"_s;
QString const kDisconnected = u"status 1"_s;
QString const kVerificationFailed = u"status 2"_s;

}  // namespace

TEST_F(UsbBackend, TellsItsNamesAndPlaceInTheHierarchy)
{
    MakeBackend();
    QObject parent;

    EXPECT_STREQ(backend_->metaObject()->className(), "UsbFirmwareUpdater");
    EXPECT_EQ(backend_->metaObject()->superClass(), &FirmwareUpdaterBase::staticMetaObject);
    EXPECT_EQ(backend_->parent(), nullptr);
    EXPECT_EQ((new UsbFirmwareUpdater({}, {}, 0, 0, 0, {}, &parent))->parent(), &parent);
}

TEST_F(UsbBackend, TakesItsDriverAndTheProcessAlongToAnotherThread)
{
    MakeBackend();
    QThread thread;
    auto* const driver = backend_->findChild<Stm32DfuUtilUpdater*>();
    ASSERT_NE(driver, nullptr);
    auto* const process = driver->findChild<QProcess*>();
    ASSERT_NE(process, nullptr);

    backend_->moveToThread(&thread);

    EXPECT_EQ(driver->thread(), &thread);
    EXPECT_EQ(process->thread(), &thread);
}

TEST_F(UsbBackend, ConnectsWithoutTheToolWhenNotAskedToVerify)
{
    tool_.Does("");
    MakeBackend();

    backend_->onConnectToDevice({}, {kModel}, false);

    EXPECT_EQ(signals_, QStringList({kConnected}));
    EXPECT_EQ(tool_.ProcessIds().size(), 0);
}

TEST_F(UsbBackend, ConnectsToAListedModel)
{
    ToolReadsModel(kModel);
    MakeBackend();

    backend_->onConnectToDevice(u"any"_s, {1, kModel}, true);

    EXPECT_EQ(signals_, QStringList({kConnected}));
    EXPECT_EQ(tool_.Arguments(), QStringList({u"-d"_s, u"0483:df11"_s, u"-a"_s, u"2"_s, u"-s"_s,
                                              u"0x1fff7800:512"_s, u"-U"_s, tool_.OtpPath()}));
}

TEST_F(UsbBackend, RefusesAnUnlistedModel)
{
    ToolReadsModel(kModel);
    MakeBackend();

    backend_->onConnectToDevice({}, {1, 2}, true);
    backend_->onConnectToDevice({}, {}, true);

    EXPECT_EQ(signals_, QStringList({kVerificationFailed, kVerificationFailed}));
}

TEST_F(UsbBackend, RefusesAUnitThatCannotBeRead)
{
    MakeBackend();

    backend_->onConnectToDevice({}, {kModel}, true);
    tool_.Does("exit 74\n");
    backend_->onConnectToDevice({}, {kModel}, true);

    EXPECT_EQ(signals_, QStringList({kVerificationFailed, kVerificationFailed}));
}

TEST_F(UsbBackend, LooksThroughAShortAreaAsFarAsItGoes)
{
    MakeBackend();
    for (auto const& area : {QByteArray("\x11\x47\x23\x01\x79", 5), QByteArray("\x11", 1)}) {
        tool_.Write(u"area"_s, area);
        tool_.Does("read_unit_as area\n");
        backend_->onConnectToDevice({}, {kModel}, true);
    }

    EXPECT_EQ(signals_, QStringList({kVerificationFailed, kVerificationFailed}));
}

TEST_F(UsbBackend, DoesNotFindTheRecordBeyondTheArea)
{
    tool_.Write(u"area"_s, QByteArray(512, '\xFF') + QByteArray("\x11\x47\x23\x01\x79", 5) +
                               QByteArray(1024, '\0'));
    tool_.Does("read_unit_as area\n");
    MakeBackend();

    backend_->onConnectToDevice({}, {kModel}, true);

    EXPECT_EQ(signals_, QStringList({kVerificationFailed}));
}

TEST_F(UsbBackend, ConnectsWithoutTheToolForServiceFirmware)
{
    tool_.Does("");
    MakeBackend(u"service"_s);

    backend_->onConnectToDevice({}, {}, true);

    EXPECT_EQ(signals_, QStringList({kConnected}));
    EXPECT_EQ(tool_.ProcessIds().size(), 0);
}

TEST_F(UsbBackend, ChecksTheModelForServiceFirmwareInAnotherSpelling)
{
    tool_.Does("");
    MakeBackend(u"Service"_s);

    backend_->onConnectToDevice({}, {kModel}, true);

    EXPECT_EQ(signals_, QStringList({kVerificationFailed}));
    EXPECT_EQ(tool_.ProcessIds().size(), 1);
}

TEST_F(UsbBackend, TellsDisconnectedEvenIfNothingWasConnected)
{
    tool_.Does("");
    MakeBackend();

    backend_->onDisconnectDevice();

    EXPECT_EQ(signals_, QStringList({kDisconnected}));
    EXPECT_EQ(tool_.ProcessIds().size(), 0);
}

TEST_F(UsbBackend, HasNothingToOpenCloseOrRestart)
{
    tool_.Does("");
    MakeBackend();

    EXPECT_TRUE(backend_->connect({}));
    EXPECT_TRUE(backend_->connect(u"again"_s));
    backend_->disconnect();
    backend_->reset();

    EXPECT_EQ(signals_, QStringList());
    EXPECT_EQ(tool_.ProcessIds().size(), 0);
}

TEST_F(UsbBackend, UpdatesByOneDownload)
{
    tool_.Does("");
    MakeBackend();

    backend_->onStartUpdate();

    ASSERT_TRUE(WaitForSignal(u"100"_s));
    EXPECT_EQ(tool_.Arguments(),
              QStringList({u"-d"_s, u"0483:df11"_s, u"-a"_s, u"0"_s, u"-s"_s,
                           u"0X08004000:fast:leave"_s, u"-D"_s, u"/images/fw.bin"_s}));
}

TEST_F(UsbBackend, StartsAnUpdateWithoutWaitingForItsEnd)
{
    tool_.Does("wait_for_test\n");
    MakeBackend();

    backend_->onStartUpdate();

    EXPECT_EQ(signals_, QStringList({u"started"_s, u"erase started"_s}));
    tool_.LetGo();
    EXPECT_TRUE(WaitForSignal(u"finished true"_s));
}

TEST_F(UsbBackend, ReportsOnlyTheToolsPercentagesAndAtLast100)
{
    tool_.Does(
        "printf 'Erase [==] 50%%'; printf '\\rDownload [==] 30%%'; wait_for_test\n"
        "printf '\\rDownload [===] 70%%'; wait_for_test\n");
    MakeBackend();
    backend_->onStartUpdate();

    ASSERT_TRUE(WaitForSignal(u"30"_s));
    tool_.LetGo();
    ASSERT_TRUE(WaitForSignal(u"70"_s));
    tool_.LetGo();
    ASSERT_TRUE(WaitForSignal(u"100"_s));

    EXPECT_EQ(signals_, QStringList({u"started"_s, u"erase started"_s, u"erase finished"_s, u"30"_s,
                                     u"70"_s, u"finished true"_s, u"100"_s}));
}

TEST_F(UsbBackend, FailsAnUpdateWhoseToolIsKilled)
{
    tool_.Does("kill -s KILL $$\n");
    MakeBackend();
    backend_->onStartUpdate();

    ASSERT_TRUE(WaitForSignal(u"100"_s));

    EXPECT_EQ(signals_,
              QStringList({u"started"_s, u"erase started"_s, u"finished false"_s, u"100"_s}));
}

TEST_F(UsbBackend, UploadsTheFileItIsGivenWithoutCallingForProgress)
{
    tool_.Does("printf 'Download [==] 30%%'\n");
    MakeBackend();
    bool called = false;

    EXPECT_TRUE(backend_->upload(u"/Geräte/other.bin"_s, [&](int) { called = true; }));
    ASSERT_TRUE(WaitForSignal(u"100"_s));

    EXPECT_EQ(tool_.Arguments().last(), u"/Geräte/other.bin"_s);
    EXPECT_FALSE(called);
    EXPECT_EQ(signals_, QStringList({u"erase started"_s, u"finished true"_s, u"100"_s}));
}

TEST_F(UsbBackend, ClaimsToUploadEvenWithoutATool)
{
    MakeBackend();

    EXPECT_TRUE(backend_->upload({}, {}));

    EXPECT_EQ(signals_, QStringList({u"erase started"_s}));
}

TEST_F(UsbBackend, WorksOnItsOwnThread)
{
    tool_.Does("printf 'Download [==] 30%%'; wait_for_test\n");
    MakeBackend();
    QThread thread;
    QList<QThread*> threads;
    QSemaphore half_way;
    QSemaphore done;
    auto const note = [&](int percent) {
        threads.append(QThread::currentThread());
        (percent == 100 ? done : half_way).release();
    };
    QObject::connect(backend_.get(), &FirmwareUpdaterBase::ProgressUpdate, note);
    backend_->moveToThread(&thread);
    thread.start();

    QMetaObject::invokeMethod(backend_.get(), &FirmwareUpdaterBase::onStartUpdate,
                              Qt::QueuedConnection);
    ASSERT_TRUE(half_way.tryAcquire(1, kPatience));
    tool_.LetGo();
    ASSERT_TRUE(done.tryAcquire(1, kPatience));
    thread.quit();
    thread.wait();

    EXPECT_THAT(threads, Each(&thread));
}

TEST_F(UsbBackend, LetsItsThreadEndOnlyAfterARunningUpdate)
{
    tool_.Does("echo >\"$here/running\"; wait_for_test; echo >\"$here/written\"\n");
    MakeBackend();
    QThread thread;
    backend_->moveToThread(&thread);
    thread.start();
    QMetaObject::invokeMethod(backend_.get(), &FirmwareUpdaterBase::onStartUpdate,
                              Qt::QueuedConnection);
    ASSERT_TRUE(QTest::qWaitFor([&] { return tool_.Has(u"running"_s); }, kPatience));

    thread.quit();
    EXPECT_FALSE(thread.wait(300));
    tool_.LetGo();
    EXPECT_TRUE(thread.wait(kPatience));

    EXPECT_TRUE(tool_.Has(u"written"_s));
}
