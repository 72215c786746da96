#include "tests/updater/fake_updater.h"

#include "tests/updater/backend_signals.h"

using namespace Qt::StringLiterals;

FakeUpdater::FakeUpdater(QString const& firmware_path) : FirmwareUpdaterBase(nullptr)
{
    firmware_path_ = firmware_path;
    NoteSignals(*this, [this](QString const& signal) { Note(signal); });
}

bool FakeUpdater::connect(QString const& port_name)
{
    Note(u"connect "_s + port_name);
    return connects;
}

void FakeUpdater::disconnect()
{
    Note(u"disconnect"_s);
}

bool FakeUpdater::upload(QString const& firmware_path, std::function<void(int)> progress)
{
    Note(u"upload "_s + firmware_path);
    for (int const percent : percentages) {
        progress(percent);
    }
    if (upload_may_end != nullptr) {
        upload_may_end->acquire();
    }
    return uploads;
}

void FakeUpdater::reset()
{
    Note(u"reset"_s);
}

bool FakeUpdater::verifyDeviceId(QList<uint8_t> const& device_ids)
{
    QStringList numbers;
    for (auto const id : device_ids) {
        numbers.append(QString::number(id));
    }
    Note(u"verify "_s + numbers.join(u' '));
    return verifies;
}

void FakeUpdater::onStartUpdate()
{
    RunUpdate();
}

void FakeUpdater::onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                                    bool const& verify)
{
    ConnectAndVerify(port_name, device_ids, verify);
}

void FakeUpdater::onDisconnectDevice()
{
    DisconnectAndTell();
}

QStringList FakeUpdater::Events() const
{
    std::lock_guard const lock(mutex_);
    return events_;
}

QList<QThread*> FakeUpdater::Threads() const
{
    std::lock_guard const lock(mutex_);
    return threads_;
}

void FakeUpdater::Note(QString const& event)
{
    std::lock_guard const lock(mutex_);
    events_.append(event);
    threads_.append(QThread::currentThread());
}
