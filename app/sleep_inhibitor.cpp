#include "app/sleep_inhibitor.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QObject>
#include <QProcess>
#include <QVariantMap>
#include <utility>

namespace {

QString Reason()
{
    return QStringLiteral("A unit's firmware is being updated");
}

class CaffeinateInhibitor : public SleepInhibitor {
public:
    explicit CaffeinateInhibitor(QString caffeinate) : caffeinate_(std::move(caffeinate)) {}
    ~CaffeinateInhibitor() override { CaffeinateInhibitor::Release(); }

    void Hold() override
    {
        if (process_) {
            return;
        }
        process_ = std::make_unique<QProcess>();
        process_->setStandardOutputFile(QProcess::nullDevice());
        process_->setStandardErrorFile(QProcess::nullDevice());
        // -i: no sleep for idleness; -w: until that process has ended.
        process_->start(caffeinate_,
                        {QStringLiteral("-i"), QStringLiteral("-w"),
                         QString::number(QCoreApplication::applicationPid())},
                        QIODevice::NotOpen);
    }

    // The tool holds nothing that it would have to put in order.
    void Release() override
    {
        if (process_) {
            process_->kill();
            process_->waitForFinished(kPatienceMs);
            process_.reset();
        }
    }

private:
    static constexpr int kPatienceMs = 1000;

    QString caffeinate_;
    std::unique_ptr<QProcess> process_;  // none: not held
};

class DesktopInhibitor : public SleepInhibitor {
public:
    explicit DesktopInhibitor(QString bus_address) : bus_address_(std::move(bus_address)) {}
    ~DesktopInhibitor() override { DesktopInhibitor::Release(); }

    void Hold() override
    {
        if (held_) {
            return;
        }
        held_ = std::make_unique<QObject>();
        // connectToBus would wait until the bus has answered the first call, which a peer needs
        // not.
        auto const bus = QDBusConnection::connectToPeer(bus_address_, kConnection);
        bus.send(MakeHello());
        Ask(bus, MakePortalCall(), [this, bus] { Ask(bus, MakePowerManagementCall(), [] {}); });
    }

    void Release() override
    {
        held_.reset();
        QDBusConnection::disconnectFromPeer(kConnection);
    }

private:
    inline static auto const kConnection = QStringLiteral("kelvane-sleep-inhibitor");

    // The bus hands on no other call before this one.
    static QDBusMessage MakeHello()
    {
        return QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("Hello"));
    }

    // https://flatpak.github.io/xdg-desktop-portal/docs/doc-org.freedesktop.portal.Inhibit.html
    static QDBusMessage MakePortalCall()
    {
        constexpr unsigned kSuspend = 4;
        auto call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.portal.Desktop"),
            QStringLiteral("/org/freedesktop/portal/desktop"),
            QStringLiteral("org.freedesktop.portal.Inhibit"), QStringLiteral("Inhibit"));
        call << QString() << kSuspend << QVariantMap{{QStringLiteral("reason"), Reason()}};
        return call;
    }

    static QDBusMessage MakePowerManagementCall()
    {
        auto call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.PowerManagement"),
            QStringLiteral("/org/freedesktop/PowerManagement/Inhibit"),
            QStringLiteral("org.freedesktop.PowerManagement.Inhibit"), QStringLiteral("Inhibit"));
        call << QCoreApplication::applicationName() << Reason();
        return call;
    }

    template <typename OnRefusal>
    void Ask(QDBusConnection const& bus, QDBusMessage const& call, OnRefusal const& on_refusal)
    {
        auto* const watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), held_.get());
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, held_.get(),
                         [watcher, on_refusal] {
                             watcher->deleteLater();
                             if (watcher->isError()) {
                                 on_refusal();
                             }
                         });
    }

    QString bus_address_;
    std::unique_ptr<QObject> held_;  // owns the calls whose answers are awaited; none: not held
};

}  // namespace

std::unique_ptr<SleepInhibitor> MakeCaffeinateInhibitor(QString const& caffeinate)
{
    return std::make_unique<CaffeinateInhibitor>(caffeinate);
}

std::unique_ptr<SleepInhibitor> MakeDesktopInhibitor(QString const& bus_address)
{
    return std::make_unique<DesktopInhibitor>(bus_address);
}

std::unique_ptr<SleepInhibitor> MakeSleepInhibitor(QString const& product_type,
                                                   QString const& bus_address,
                                                   QString const& caffeinate)
{
    if (product_type.compare(QLatin1String("macos"), Qt::CaseInsensitive) == 0) {
        return MakeCaffeinateInhibitor(caffeinate);
    }
    // Without an address the bus would be looked for by starting programs.
    return bus_address.isEmpty() ? nullptr : MakeDesktopInhibitor(bus_address);
}
