// The contract between window and backend: the order of operations and signals, the threads, and
// the types that cross them.
#include "updater/firmware_updater_base.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QMetaMethod>
#include <QSequentialIterable>
#include <QTest>
#include <memory>
#include <type_traits>

#include "tests/support/fake_backend.h"
#include "updater/uart_firmware_updater.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int kPatience = 10'000;  // milliseconds

// The methods that `type` itself declares, such as "signal Name(type name, ...)".
QStringList OwnMethods(QMetaObject const& type)
{
    QStringList methods;
    for (int i = type.methodOffset(); i < type.methodCount(); ++i) {
        auto const method = type.method(i);
        QStringList parameters;
        for (int k = 0; k < method.parameterCount(); ++k) {
            parameters.append(QString::fromLatin1(method.parameterTypes().at(k)) + u' ' +
                              QString::fromLatin1(method.parameterNames().at(k)));
        }
        bool const is_signal = method.methodType() == QMetaMethod::Signal;
        methods.append((is_signal ? u"signal "_s : u"slot "_s) +
                       QString::fromLatin1(method.name()) + u'(' + parameters.join(u", "_s) + u')');
    }
    return methods;
}

// A backend on a worker thread, as the window keeps it.
struct WorkingUpdater {
    WorkingUpdater()
    {
        updater->moveToThread(&thread);
        thread.start();
    }
    ~WorkingUpdater()
    {
        thread.quit();
        thread.wait();
    }

    void Request(std::function<void()> const& call) const
    {
        QMetaObject::invokeMethod(updater.get(), call, Qt::QueuedConnection);
    }

    bool WaitForEvents(qsizetype count) const
    {
        return QTest::qWaitFor([&] { return updater->Record().Events().size() >= count; },
                               kPatience);
    }

    std::unique_ptr<FakeBackend> updater = std::make_unique<FakeBackend>();
    QThread thread;
};

}  // namespace

TEST(UpdaterBase, IsAnAbstractObjectThatListsItsSignalsAndThenItsSlots)
{
    EXPECT_TRUE(std::is_abstract_v<FirmwareUpdaterBase>);
    EXPECT_STREQ(FirmwareUpdaterBase::staticMetaObject.className(), "FirmwareUpdaterBase");
    EXPECT_EQ(FirmwareUpdaterBase::staticMetaObject.superClass(), &QObject::staticMetaObject);
    EXPECT_EQ(static_cast<int>(ConnectionStatus::Connected), 0);
    EXPECT_EQ(static_cast<int>(ConnectionStatus::Disconnected), 1);
    EXPECT_EQ(static_cast<int>(ConnectionStatus::VerificationFailed), 2);
    EXPECT_EQ(OwnMethods(FirmwareUpdaterBase::staticMetaObject),
              QStringList({u"signal UpdateStarted()"_s, u"signal UpdateFinished(bool status)"_s,
                           u"signal EraseStarted()"_s, u"signal EraseFinished()"_s,
                           u"signal ProgressUpdate(int percent)"_s,
                           u"signal UpdateConnectionStatus(ConnectionStatus status)"_s,
                           u"slot onStartUpdate()"_s,
                           u"slot onConnectToDevice(QString port_name, QList<uint8_t> device_ids, "
                           "bool verify)"_s,
                           u"slot onDisconnectDevice()"_s}));
    auto const& type = FirmwareUpdaterBase::staticMetaObject;
    EXPECT_EQ(type.method(type.methodOffset() + 5).parameterMetaType(0),
              QMetaType::fromType<ConnectionStatus>());
    EXPECT_EQ(type.method(type.methodOffset() + 7).parameterMetaType(1),
              QMetaType::fromType<QList<uint8_t>>());
}

// By name only: asking for the type itself would register it.
TEST(UpdaterBase, RegistersTheTypesThatCrossThreads)
{
    UartFirmwareUpdater const updater({}, 0, 0, 0, 0, 0, {}, nullptr);

    auto const list = QMetaType::fromName("QList<uchar>");
    EXPECT_TRUE(list.isValid());
    EXPECT_TRUE(QMetaType::fromName("ConnectionStatus").isValid());
    EXPECT_TRUE(QMetaType::hasRegisteredConverterFunction(
        list, QMetaType::fromType<QIterable<QMetaSequence>>()));
    EXPECT_TRUE(QMetaType::hasRegisteredMutableViewFunction(
        list, QMetaType::fromType<QIterable<QMetaSequence>>()));
}

TEST(UpdaterBase, ReachesTheOverrideThroughItsSlots)
{
    FakeBackend fake;
    FirmwareUpdaterBase& base = fake;
    QObject trigger;
    QObject::connect(&trigger, &QObject::objectNameChanged, &base,
                     &FirmwareUpdaterBase::onDisconnectDevice);

    trigger.setObjectName(u"x"_s);
    EXPECT_TRUE(QMetaObject::invokeMethod(&fake, "onDisconnectDevice"));

    EXPECT_EQ(fake.Record().Events(), QStringList({u"disconnect"_s, u"Disconnected"_s,
                                                   u"disconnect"_s, u"Disconnected"_s}));
}

TEST(ConnectRequest, OpensVerifiesAndReportsInThisOrder)
{
    QString const connect = u"connect ttyX"_s;
    QString const verify = u"verify 12 255"_s;
    struct {
        bool connects;
        bool asked_to_verify;
        bool verifies;
        QStringList events;
    } const rows[] = {
        {true, true, true, {connect, verify, u"Connected"_s}},
        {true, false, false, {connect, u"Connected"_s}},
        {false, true, true, {connect, u"Disconnected"_s}},
        {true, true, false, {connect, verify, u"disconnect"_s, u"VerificationFailed"_s}},
    };
    for (auto const& [connects, asked_to_verify, verifies, events] : rows) {
        FakeBackend fake;
        fake.Record().connects = connects;
        fake.Record().verifies = verifies;

        fake.onConnectToDevice(u"ttyX"_s, {12, 255}, asked_to_verify);

        EXPECT_EQ(fake.Record().Events(), events);
    }
}

TEST(UpdateRequest, ResetsTheUnitOnlyAfterASuccessAndFinishesOncePerStart)
{
    FakeBackend fake(std::make_shared<BackendRecord>(), u"/images/fw.bin"_s);
    fake.Record().percentages = {0, 50, 100};
    fake.onStartUpdate();
    fake.Record().percentages = {};
    fake.Record().uploads = false;
    fake.onStartUpdate();
    fake.Record().uploads = true;
    fake.onStartUpdate();

    QString const upload = u"upload /images/fw.bin"_s;
    EXPECT_EQ(fake.Record().Events(),
              QStringList({u"started"_s, upload, u"0"_s, u"50"_s, u"100"_s, u"reset"_s,
                           u"finished true"_s, u"started"_s, upload, u"finished false"_s,
                           u"started"_s, upload, u"reset"_s, u"finished true"_s}));
}

TEST(UpdaterThread, RunsRequestsOfAnUpdateAfterItInTheirOrder)
{
    WorkingUpdater working;
    FakeBackend& fake = *working.updater;
    fake.Record().holds_updates = true;
    working.Request([&] { fake.onStartUpdate(); });
    ASSERT_TRUE(working.WaitForEvents(2)) << "the upload never began";

    working.Request([&] { fake.onDisconnectDevice(); });
    working.Request([&] { fake.onConnectToDevice(u"ttyX"_s, {}, false); });
    fake.Record().update_may_end.release();
    ASSERT_TRUE(working.WaitForEvents(8));

    EXPECT_EQ(fake.Record().Events(),
              QStringList({u"started"_s, u"upload "_s, u"reset"_s, u"finished true"_s,
                           u"disconnect"_s, u"Disconnected"_s, u"connect ttyX"_s, u"Connected"_s}));
    EXPECT_THAT(fake.Record().Threads(), testing::Each(&working.thread));
}

TEST(UpdaterThread, DeliversStatusAndListAcrossThreads)
{
    WorkingUpdater working;
    FakeBackend& fake = *working.updater;
    fake.Record().verifies = false;
    QList<ConnectionStatus> received;
    QObject receiver;
    QObject::connect(&fake, &FirmwareUpdaterBase::UpdateConnectionStatus, &receiver,
                     [&](ConnectionStatus status) {
                         EXPECT_EQ(QThread::currentThread(), receiver.thread());
                         received.append(status);
                     });

    ASSERT_TRUE(QMetaObject::invokeMethod(
        &fake, "onConnectToDevice", Qt::QueuedConnection, Q_ARG(QString, u"ttyX"_s),
        Q_ARG(QList<uint8_t>, QList<uint8_t>({12, 200})), Q_ARG(bool, true)));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !received.isEmpty(); }, kPatience));

    EXPECT_EQ(received, QList({ConnectionStatus::VerificationFailed}));
    EXPECT_EQ(fake.Record().Events().at(1), u"verify 12 200"_s);
}
