#include "tests/support/fake_backend.h"

#include <algorithm>
#include <utility>

#include "tests/support/backend_signals.h"

using namespace Qt::StringLiterals;

namespace {

QString Join(QList<uint8_t> const& numbers)
{
    QStringList texts;
    for (auto const number : numbers) {
        texts.append(QString::number(number));
    }
    return texts.join(u' ');
}

}  // namespace

void BackendRecord::Add(QString const& event)
{
    std::lock_guard const lock(mutex_);
    events_.append(event);
    threads_.append(QThread::currentThread());
}

QStringList BackendRecord::Events() const
{
    std::lock_guard const lock(mutex_);
    return events_;
}

QList<QThread*> BackendRecord::Threads() const
{
    std::lock_guard const lock(mutex_);
    return threads_;
}

qsizetype BackendRecord::Count(QString const& beginning) const
{
    auto const events = Events();
    return std::ranges::count_if(events,
                                 [&](QString const& event) { return event.startsWith(beginning); });
}

FakeBackend::FakeBackend(std::shared_ptr<BackendRecord> record, QString const& firmware_path)
    : FirmwareUpdaterBase(nullptr), record_(std::move(record))
{
    firmware_path_ = firmware_path;
    NoteSignals(*this, [this](QString const& signal) { NoteSignal(signal); });
}

FakeBackend::~FakeBackend()
{
    record_->Add(u"destroyed"_s);
}

bool FakeBackend::connect(QString const& port_name)
{
    NoteStep(u"connect "_s + port_name);
    return record_->connects;
}

void FakeBackend::disconnect()
{
    NoteStep(u"disconnect"_s);
}

bool FakeBackend::upload(QString const& firmware_path, std::function<void(int)> progress)
{
    NoteStep(u"upload "_s + firmware_path);
    for (int const percent : record_->percentages) {
        progress(percent);
    }
    HoldUpdate();
    return record_->uploads;
}

void FakeBackend::reset()
{
    NoteStep(u"reset"_s);
}

bool FakeBackend::verifyDeviceId(QList<uint8_t> const& device_ids)
{
    NoteStep(u"verify "_s + Join(device_ids));
    return record_->verifies;
}

void FakeBackend::onStartUpdate()
{
    if (record_->answers) {
        RunUpdate();
        return;
    }
    record_->Add(u"update"_s);
    if (record_->holds_updates) {
        HoldUpdate();
        record_->Add(u"end of update"_s);
    }
}

void FakeBackend::onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                                    bool const& verify)
{
    if (record_->answers) {
        ConnectAndVerify(port_name, device_ids, verify);
        return;
    }
    record_->Add(u"connect \"%1\" [%2] %3"_s.arg(port_name, Join(device_ids),
                                                 verify ? u"verify"_s : u"blindly"_s));
}

void FakeBackend::onDisconnectDevice()
{
    if (record_->answers) {
        DisconnectAndReport();
        return;
    }
    record_->Add(u"disconnect"_s);
}

// The window makes requests; it must never call a step itself.
void FakeBackend::NoteStep(QString const& step)
{
    record_->Add(record_->answers ? step : u"called "_s + step);
}

void FakeBackend::NoteSignal(QString const& signal)
{
    if (record_->answers) {
        record_->Add(signal);
    }
}

void FakeBackend::HoldUpdate()
{
    if (record_->holds_updates) {
        record_->update_may_end.acquire();
    }
}
