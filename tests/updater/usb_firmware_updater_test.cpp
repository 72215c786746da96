// The USB backend over a stand-in for dfu-util.
#include "updater/usb_firmware_updater.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QProcess>
#include <QSemaphore>
#include <QTest>
#include <QThread>
#include <memory>

#include "tests/support/backend_signals.h"
#include "tests/support/stand_in_tool.h"

using namespace Qt::StringLiterals;
using stm32_updater::Stm32DfuUtilUpdater;
using testing::Each;

namespace {

constexpr int kPatience = 15'000;  // ms
constexpr uint8_t kModel = 0x79;

// Counts the calls of disconnect(), of which the slots make none.
class CountingBackend : public UsbFirmwareUpdater {
public:
    using UsbFirmwareUpdater::UsbFirmwareUpdater;
    void disconnect() override { ++disconnects; }

    int disconnects = 0;
};

class UsbBackend : public testing::Test {
protected:
    void MakeBackend(QString const& fw_target_type = {})
    {
        backend_ = std::make_unique<CountingBackend>(u"/images/fw.bin"_s, tool_.Path(), 0x08004000,
                                                     0x1FFF7800, 512, fw_target_type, nullptr);
        NoteSignals(*backend_, [this](QString const& signal) { signals_.append(signal); });
    }

    bool WaitForSignal(QString const& signal)
    {
        return QTest::qWaitFor([&] { return signals_.contains(signal); }, kPatience);
    }

    StandInTool tool_;
    QStringList signals_;
    std::unique_ptr<CountingBackend> backend_;
};

QByteArray const kModelRecord("\x11\x47\x23\x01\x79", 5);

}  // namespace

TEST_F(UsbBackend, HasItsNameItsBaseItsParentAndTheEngineThatMovesWithIt)
{
    QObject parent;
    auto const* backend = new UsbFirmwareUpdater({}, {}, 0, 0, 0, {}, &parent);

    EXPECT_STREQ(backend->metaObject()->className(), "UsbFirmwareUpdater");
    EXPECT_EQ(backend->metaObject()->superClass(), &FirmwareUpdaterBase::staticMetaObject);
    EXPECT_EQ(backend->parent(), &parent);

    QThread thread;
    parent.moveToThread(&thread);
    auto const* engine = backend->findChild<Stm32DfuUtilUpdater*>();
    ASSERT_NE(engine, nullptr);
    auto const* process = engine->findChild<QProcess*>();
    ASSERT_NE(process, nullptr);
    EXPECT_EQ(engine->thread(), &thread);
    EXPECT_EQ(process->thread(), &thread);
}

TEST_F(UsbBackend, ReadsTheOtpAreaToVerifyTheModel)
{
    tool_.Write(u"area"_s, kModelRecord.leftJustified(512, '\xFF'));
    tool_.Does("read_unit_as area\n");
    MakeBackend();

    backend_->onConnectToDevice(u"any"_s, {1, kModel}, true);

    EXPECT_EQ(signals_, QStringList({u"Connected"_s}));
    EXPECT_EQ(tool_.Arguments(), QStringList({u"-d"_s, u"0483:df11"_s, u"-a"_s, u"2"_s, u"-s"_s,
                                              u"0x1fff7800:512"_s, u"-U"_s, tool_.OtpPath()}));
}

// model_id_test.cpp has every spelling of "service", and every area with and without a record.
TEST_F(UsbBackend, RunsTheToolOnlyToVerifyFirmwareThatIsNotForService)
{
    tool_.Does("");
    for (auto const& [target_type, verify] : {std::pair{u""_s, false}, {u"service"_s, true}}) {
        signals_.clear();
        MakeBackend(target_type);

        backend_->onConnectToDevice({}, {kModel}, verify);

        EXPECT_EQ(signals_, QStringList({u"Connected"_s})) << target_type.toStdString();
        EXPECT_EQ(tool_.ProcessIds().size(), 0) << target_type.toStdString();
    }
}

TEST_F(UsbBackend, RefusesAUnitOfAnotherModelOrOneThatCannotBeReadWithoutADisconnect)
{
    tool_.Write(u"area"_s, kModelRecord.leftJustified(512, '\xFF'));
    tool_.Write(u"short"_s, kModelRecord);
    MakeBackend();
    backend_->onConnectToDevice({}, {kModel}, true);
    EXPECT_EQ(signals_, QStringList({u"VerificationFailed"_s})) << "without a tool";
    for (auto const& [commands, model] : {std::pair{"read_unit_as area\n", uint8_t{2}},
                                          {"read_unit_as short\n", kModel},
                                          {"exit 74\n", kModel}}) {
        tool_.Does(commands);
        signals_.clear();

        backend_->onConnectToDevice({}, {1, model}, true);

        EXPECT_EQ(signals_, QStringList({u"VerificationFailed"_s})) << commands;
        EXPECT_EQ(backend_->disconnects, 0) << commands;
    }
}

TEST_F(UsbBackend, HasNothingToOpenCloseOrRestart)
{
    tool_.Does("");
    MakeBackend();

    backend_->onDisconnectDevice();
    EXPECT_EQ(backend_->disconnects, 0);
    EXPECT_TRUE(backend_->connect({}));
    EXPECT_TRUE(backend_->connect(u"again"_s));
    backend_->UsbFirmwareUpdater::disconnect();
    backend_->reset();

    EXPECT_EQ(signals_, QStringList({u"Disconnected"_s}));
    EXPECT_EQ(tool_.ProcessIds().size(), 0);
}

TEST_F(UsbBackend, StartsADownloadWithoutWaitingForItsEnd)
{
    tool_.Does("wait_for_test\n");
    MakeBackend();

    backend_->onStartUpdate();

    EXPECT_EQ(signals_, QStringList({u"started"_s, u"erase started"_s}));
    tool_.LetGo();
    EXPECT_TRUE(WaitForSignal(u"finished true"_s));
    EXPECT_EQ(tool_.Arguments(),
              QStringList({u"-d"_s, u"0483:df11"_s, u"-a"_s, u"0"_s, u"-s"_s,
                           u"0X08004000:fast:leave"_s, u"-D"_s, u"/images/fw.bin"_s}));
}

TEST_F(UsbBackend, ReportsOnlyTheToolsPercentagesAndFinally100)
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

    ASSERT_TRUE(WaitForSignal(u"finished false"_s));

    EXPECT_EQ(signals_, QStringList({u"started"_s, u"erase started"_s, u"finished false"_s}));
}

TEST_F(UsbBackend, UploadsTheFileItIsGivenWithoutCallingForProgress)
{
    tool_.Does("");
    MakeBackend();
    bool called = false;

    EXPECT_TRUE(backend_->upload(u"/Geräte/other.bin"_s, [&](int) { called = true; }));
    ASSERT_TRUE(WaitForSignal(u"100"_s));

    EXPECT_EQ(tool_.Arguments().last(), u"/Geräte/other.bin"_s);
    EXPECT_FALSE(called);
}

TEST_F(UsbBackend, EmitsItsSignalsOnItsThreadWhichEndsOnlyAfterARunningUpdate)
{
    tool_.Does("printf 'Download [==] 30%%'; wait_for_test; echo >\"$here/written\"\n");
    MakeBackend();
    QThread thread;
    QList<QThread*> threads;
    QSemaphore half_way;
    NoteSignals(*backend_, [&](QString const& signal) {
        threads.append(QThread::currentThread());
        if (signal == u"30"_s) {
            half_way.release();
        }
    });
    backend_->moveToThread(&thread);
    thread.start();
    QMetaObject::invokeMethod(backend_.get(), &FirmwareUpdaterBase::onStartUpdate,
                              Qt::QueuedConnection);
    ASSERT_TRUE(half_way.tryAcquire(1, kPatience));

    thread.quit();
    EXPECT_FALSE(thread.wait(300));
    tool_.LetGo();
    EXPECT_TRUE(thread.wait(kPatience));

    EXPECT_TRUE(tool_.Has(u"written"_s));
    EXPECT_EQ(signals_.last(), u"finished true"_s);
    EXPECT_THAT(threads, Each(&thread));
}
