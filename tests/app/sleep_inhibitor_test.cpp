// Keeping the computer awake: a stand-in for macOS's tool, and the desktops' services on a real
// bus.
#include "app/sleep_inhibitor.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>
#include <array>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kPatience = 15'000;  // milliseconds
// What nobody who looks at a window takes for a freeze, on a busy machine; a bus that says nothing
// is given up after 25 s.
constexpr qint64 kPrompt = 5'000;  // milliseconds

auto const kPortal = QStringLiteral("org.freedesktop.portal.Desktop");
auto const kPowerManagement = QStringLiteral("org.freedesktop.PowerManagement");

// ---- macOS ----

class Caffeinate : public testing::Test {
protected:
    void SetUp() override { MakeTool(); }

    void MakeTool() const
    {
        QFile script(tool_);
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\necho $$ \"$@\" >>" + called_.toLocal8Bit() + ".new\nmv " +
                     called_.toLocal8Bit() + ".new " + called_.toLocal8Bit() +
                     "\nexec sleep 600\n");
        script.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    }

    // The words of its call, its own process first; empty when it was not called.
    QStringList WaitForCall() const
    {
        QFile file(called_);
        EXPECT_TRUE(QTest::qWaitFor([&] { return file.exists(); }, kPatience));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return QString::fromLatin1(file.readAll()).trimmed().split(QLatin1Char(' '));
    }

    static bool Runs(QString const& process) { return kill(process.toInt(), 0) == 0; }

    QTemporaryDir directory_;
    QString tool_ = directory_.filePath(QStringLiteral("caffeinate"));
    QString called_ = directory_.filePath(QStringLiteral("called"));
};

TEST_F(Caffeinate, RunsUntilItIsReleasedOrThisProcessIsGone)
{
    auto const inhibitor = MakeCaffeinateInhibitor(tool_);
    inhibitor->Hold();
    auto const call = WaitForCall();
    EXPECT_EQ(call.mid(1), QStringList({QStringLiteral("-i"), QStringLiteral("-w"),
                                        QString::number(QCoreApplication::applicationPid())}));
    EXPECT_TRUE(Runs(call.first()));
    inhibitor->Release();
    EXPECT_FALSE(Runs(call.first()));
}

TEST_F(Caffeinate, IsStartedOnceHoweverOftenItIsAskedFor)
{
    auto const inhibitor = MakeCaffeinateInhibitor(tool_);
    inhibitor->Hold();
    auto const process = WaitForCall().first();
    ASSERT_TRUE(QFile::remove(called_));
    inhibitor->Hold();
    inhibitor->Release();
    EXPECT_FALSE(QFile::exists(called_));
    EXPECT_FALSE(Runs(process));
}

TEST_F(Caffeinate, CanBeHeldAgain)
{
    auto const inhibitor = MakeCaffeinateInhibitor(tool_);
    inhibitor->Hold();
    auto const first = WaitForCall().first();
    inhibitor->Release();
    ASSERT_TRUE(QFile::remove(called_));
    inhibitor->Hold();
    EXPECT_NE(WaitForCall().first(), first);
}

TEST_F(Caffeinate, EndsWithItsInhibitor)
{
    auto inhibitor = MakeCaffeinateInhibitor(tool_);
    inhibitor->Hold();
    auto const process = WaitForCall().first();
    inhibitor.reset();
    EXPECT_FALSE(Runs(process));
}

TEST_F(Caffeinate, DisturbsNobodyWhileItIsNotThere)
{
    ASSERT_TRUE(QFile::remove(tool_));
    auto const inhibitor = MakeCaffeinateInhibitor(tool_);
    QElapsedTimer timer;
    timer.start();
    inhibitor->Release();
    inhibitor->Hold();
    inhibitor->Hold();
    inhibitor->Release();
    EXPECT_LT(timer.elapsed(), kPrompt);

    MakeTool();
    inhibitor->Hold();
    EXPECT_TRUE(Runs(WaitForCall().first()));
}

TEST_F(Caffeinate, IsTheOneOfMacos)
{
    auto const inhibitor = MakeSleepInhibitor(QStringLiteral("macOS"), {}, tool_);
    ASSERT_NE(inhibitor, nullptr);
    inhibitor->Hold();
    EXPECT_TRUE(Runs(WaitForCall().first()));
}

// ---- Desktops ----

// A service of a desktop's; notes what it is asked and by whom.
class Service : public QDBusVirtualObject {
public:
    explicit Service(bool refuses) : refuses_(refuses) {}

    QString introspect(QString const&) const override { return {}; }

    bool handleMessage(QDBusMessage const& message, QDBusConnection const& bus) override
    {
        calls_.append(message);
        auto const answer =
            refuses_ ? message.createErrorReply(QDBusError::UnknownMethod, QStringLiteral("no"))
                     : message.createReply(QVariant(42U));
        return bus.send(answer);
    }

    bool refuses_;
    QList<QDBusMessage> calls_;
};

class Desktop : public testing::Test {
protected:
    void SetUp() override
    {
        daemon_.start(QStringLiteral("dbus-daemon"),
                      {QStringLiteral("--session"), QStringLiteral("--print-address"),
                       QStringLiteral("--nofork"),
                       QStringLiteral("--address=unix:dir=") + directory_.path()});
        ASSERT_TRUE(daemon_.waitForReadyRead(kPatience));
        address_ = QString::fromLatin1(daemon_.readLine()).trimmed();
    }

    void TearDown() override
    {
        QDBusConnection::disconnectFromBus(QStringLiteral("services"));
        daemon_.kill();
        daemon_.waitForFinished(kPatience);
    }

    QDBusConnection Bus()
    {
        return QDBusConnection::connectToBus(address_, QStringLiteral("services"));
    }

    void Offer(QString const& name, Service& service)
    {
        auto bus = Bus();
        ASSERT_TRUE(
            bus.registerVirtualObject(QStringLiteral("/"), &service, QDBusConnection::SubPath));
        ASSERT_TRUE(bus.registerService(name));
    }

    bool WaitForCall(Service const& service)
    {
        return QTest::qWaitFor([&] { return !service.calls_.isEmpty(); }, kPatience);
    }

    bool WaitUntilGone(QString const& caller)
    {
        return QTest::qWaitFor(
            [&] { return !Bus().interface()->isServiceRegistered(caller).value(); }, kPatience);
    }

    QTemporaryDir directory_;
    QProcess daemon_;
    QString address_;
};

TEST_F(Desktop, IsAskedThroughItsPortalToStayAwake)
{
    Service portal(false);
    Offer(kPortal, portal);
    auto const inhibitor = MakeDesktopInhibitor(address_);
    inhibitor->Hold();
    ASSERT_TRUE(WaitForCall(portal));
    auto const& call = portal.calls_.first();
    EXPECT_EQ(call.path(), QStringLiteral("/org/freedesktop/portal/desktop"));
    EXPECT_EQ(call.interface(), QStringLiteral("org.freedesktop.portal.Inhibit"));
    EXPECT_EQ(call.member(), QStringLiteral("Inhibit"));
    EXPECT_EQ(call.signature(), QStringLiteral("sua{sv}"));
    EXPECT_EQ(call.arguments().at(1).toUInt(), 4U);
    EXPECT_TRUE(Bus().interface()->isServiceRegistered(call.service()).value());
}

TEST_F(Desktop, ForgetsTheRequestWhenItIsReleased)
{
    Service portal(false);
    Offer(kPortal, portal);
    auto const inhibitor = MakeDesktopInhibitor(address_);
    inhibitor->Hold();
    ASSERT_TRUE(WaitForCall(portal));
    inhibitor->Release();
    EXPECT_TRUE(WaitUntilGone(portal.calls_.first().service()));
}

TEST_F(Desktop, ForgetsTheRequestOfAnInhibitorThatIsGone)
{
    Service portal(false);
    Offer(kPortal, portal);
    auto inhibitor = MakeDesktopInhibitor(address_);
    inhibitor->Hold();
    ASSERT_TRUE(WaitForCall(portal));
    inhibitor.reset();
    EXPECT_TRUE(WaitUntilGone(portal.calls_.first().service()));
}

TEST_F(Desktop, IsAskedThroughItsPowerManagerWhereThereIsNoPortal)
{
    Service power(false);
    Offer(kPowerManagement, power);
    auto const inhibitor = MakeDesktopInhibitor(address_);
    inhibitor->Hold();
    ASSERT_TRUE(WaitForCall(power));
    auto const& call = power.calls_.first();
    EXPECT_EQ(call.path(), QStringLiteral("/org/freedesktop/PowerManagement/Inhibit"));
    EXPECT_EQ(call.interface(), QStringLiteral("org.freedesktop.PowerManagement.Inhibit"));
    EXPECT_EQ(call.member(), QStringLiteral("Inhibit"));
    EXPECT_EQ(call.signature(), QStringLiteral("ss"));
}

TEST_F(Desktop, IsAskedThroughItsPowerManagerWhenThePortalRefuses)
{
    Service both(true);
    Offer(kPortal, both);
    ASSERT_TRUE(Bus().registerService(kPowerManagement));
    auto const inhibitor = MakeDesktopInhibitor(address_);
    inhibitor->Hold();
    ASSERT_TRUE(QTest::qWaitFor([&] { return both.calls_.size() == 2; }, kPatience));
    EXPECT_EQ(both.calls_.at(1).interface(),
              QStringLiteral("org.freedesktop.PowerManagement.Inhibit"));
}

TEST_F(Desktop, IsAskedOnceUntilItIsReleased)
{
    Service portal(false);
    Offer(kPortal, portal);
    auto const inhibitor = MakeDesktopInhibitor(address_);
    inhibitor->Hold();
    inhibitor->Hold();
    ASSERT_TRUE(WaitForCall(portal));
    inhibitor->Release();
    inhibitor->Hold();
    ASSERT_TRUE(QTest::qWaitFor([&] { return portal.calls_.size() >= 2; }, kPatience));
    EXPECT_NE(portal.calls_.at(0).service(), portal.calls_.at(1).service());
    EXPECT_EQ(portal.calls_.size(), 2);
}

TEST_F(Desktop, IsAskedAgainForTheNextUpdateWhenEverybodyRefused)
{
    Service both(true);
    Offer(kPortal, both);
    ASSERT_TRUE(Bus().registerService(kPowerManagement));
    auto const inhibitor = MakeDesktopInhibitor(address_);
    for (qsizetype calls : {2, 4}) {
        inhibitor->Hold();
        ASSERT_TRUE(QTest::qWaitFor([&] { return both.calls_.size() == calls; }, kPatience));
        inhibitor->Release();
    }
}

TEST_F(Desktop, WithoutAnyServiceDisturbsNobody)
{
    auto const inhibitor = MakeDesktopInhibitor(address_);
    QElapsedTimer timer;
    timer.start();
    inhibitor->Hold();
    inhibitor->Release();
    inhibitor->Hold();
    EXPECT_LT(timer.elapsed(), kPrompt);
    inhibitor->Release();

    Service portal(false);
    Offer(kPortal, portal);
    inhibitor->Hold();
    EXPECT_TRUE(WaitForCall(portal));
}

TEST_F(Desktop, IsTheOneOfEverySystemWithASessionBus)
{
    Service portal(false);
    Offer(kPortal, portal);
    auto const inhibitor = MakeSleepInhibitor(QStringLiteral("debian"), address_);
    ASSERT_NE(inhibitor, nullptr);
    inhibitor->Hold();
    EXPECT_TRUE(WaitForCall(portal));
}

TEST(DesktopWithoutBus, HasNobodyToAsk)
{
    EXPECT_EQ(MakeSleepInhibitor(QStringLiteral("debian"), {}), nullptr);
}

TEST(DesktopWithoutBus, DisturbsNobody)
{
    auto const inhibitor = MakeDesktopInhibitor(QStringLiteral("unix:path=/nowhere/bus"));
    QElapsedTimer timer;
    timer.start();
    for (int update = 0; update < 2; ++update) {
        inhibitor->Hold();
        QTest::qWait(0);  // the answers, if there were any
        inhibitor->Release();
    }
    EXPECT_LT(timer.elapsed(), kPrompt);
}

// A bus that takes every connection and never says a word.
class SilentBus : public testing::Test {
protected:
    void SetUp() override
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        auto const path = directory_.filePath(QStringLiteral("bus")).toLocal8Bit();
        ASSERT_LT(static_cast<std::size_t>(path.size()), sizeof address.sun_path);
        std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
        ASSERT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(listen(socket_, 10), 0);
    }
    void TearDown() override
    {
        close(connection_);
        close(socket_);
    }

    // The beginning of what is said to it.
    std::string Hear()
    {
        EXPECT_TRUE(IsReadable(socket_));
        connection_ = accept(socket_, nullptr, nullptr);
        // It comes in pieces.
        std::array<char, 5> words{};
        std::size_t length = 0;
        while (length < words.size() && IsReadable(connection_)) {
            auto const size = read(connection_, words.data() + length, words.size() - length);
            if (size <= 0) {
                break;
            }
            length += static_cast<std::size_t>(size);
        }
        return {words.data(), length};
    }

    static bool IsReadable(int descriptor)
    {
        pollfd polled{.fd = descriptor, .events = POLLIN, .revents = 0};
        return poll(&polled, 1, kPatience) == 1;
    }

    QTemporaryDir directory_;
    QString address_ = QStringLiteral("unix:path=") + directory_.filePath(QStringLiteral("bus"));
    int socket_ = socket(AF_UNIX, SOCK_STREAM, 0);
    int connection_ = -1;
};

TEST_F(SilentBus, KeepsNobodyWaiting)
{
    auto inhibitor = MakeDesktopInhibitor(address_);
    QElapsedTimer timer;
    timer.start();
    inhibitor->Hold();
    EXPECT_LT(timer.elapsed(), kPrompt);
    EXPECT_EQ(Hear(), std::string("\0AUTH", 5));

    timer.start();
    inhibitor->Release();
    inhibitor->Hold();
    inhibitor.reset();
    EXPECT_LT(timer.elapsed(), kPrompt);
}

TEST_F(SilentBus, DoesNotKeepTheProgramFromEnding)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            auto const inhibitor = MakeDesktopInhibitor(address_);
            alarm(static_cast<unsigned>(kPrompt / 1000));
            inhibitor->Hold();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
