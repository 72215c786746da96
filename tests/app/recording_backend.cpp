#include "tests/app/recording_backend.h"

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

void BackendRecord::Add(QString const& call)
{
    std::lock_guard const lock(mutex_);
    calls_.append(call);
    threads_.append(QThread::currentThread());
}

QStringList BackendRecord::Calls() const
{
    std::lock_guard const lock(mutex_);
    return calls_;
}

QList<QThread*> BackendRecord::Threads() const
{
    std::lock_guard const lock(mutex_);
    return threads_;
}

qsizetype BackendRecord::Count(QString const& beginning) const
{
    auto const calls = Calls();
    return std::ranges::count_if(calls,
                                 [&](QString const& call) { return call.startsWith(beginning); });
}

RecordingBackend::RecordingBackend(std::shared_ptr<BackendRecord> record)
    : FirmwareUpdaterBase(nullptr), record_(std::move(record))
{}

RecordingBackend::~RecordingBackend()
{
    record_->Add(u"destroyed"_s);
}

// The window must not call the five operations itself: only the slots below may run.
bool RecordingBackend::connect(QString const&)
{
    record_->Add(u"called connect"_s);
    return false;
}

void RecordingBackend::disconnect()
{
    record_->Add(u"called disconnect"_s);
}

bool RecordingBackend::upload(QString const&, std::function<void(int)>)
{
    record_->Add(u"called upload"_s);
    return false;
}

void RecordingBackend::reset()
{
    record_->Add(u"called reset"_s);
}

bool RecordingBackend::verifyDeviceId(QList<uint8_t> const&)
{
    record_->Add(u"called verifyDeviceId"_s);
    return false;
}

void RecordingBackend::onStartUpdate()
{
    record_->Add(u"update"_s);
    if (record_->holds_updates) {
        record_->update_may_end.acquire();
        record_->Add(u"end of update"_s);
    }
}

void RecordingBackend::onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                                         bool const& verify)
{
    QStringList ids;
    for (auto const id : device_ids) {
        ids.append(QString::number(id));
    }
    record_->Add(u"connect \"%1\" [%2] %3"_s.arg(port_name, ids.join(u' '),
                                                 verify ? u"verify"_s : u"blindly"_s));
    if (record_->answers) {
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::Connected);
    }
}

void RecordingBackend::onDisconnectDevice()
{
    record_->Add(u"disconnect"_s);
    if (record_->answers) {
        Q_EMIT UpdateConnectionStatus(ConnectionStatus::Disconnected);
    }
}
