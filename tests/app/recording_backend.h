// A backend that only keeps what it was asked for. It answers when a test tells it to, and can hold
// an update until it is let go. What it keeps outlives it, so that a test can look at it after the
// window, which owns the backend, is gone.
#pragma once

#include <QList>
#include <QSemaphore>
#include <QStringList>
#include <QThread>
#include <atomic>
#include <memory>
#include <mutex>

#include "updater/firmware_updater_base.h"

// Thread-safe.
class BackendRecord {
public:
    void Add(QString const& call);
    QStringList Calls() const;
    QList<QThread*> Threads() const;

    // How many calls begin with this text.
    qsizetype Count(QString const& beginning) const;

    // While set, a connect is answered with Connected, a disconnect with Disconnected.
    std::atomic<bool> answers = false;
    // While set, an update waits for a token of `update_may_end`.
    std::atomic<bool> holds_updates = false;
    QSemaphore update_may_end;

private:
    mutable std::mutex mutex_;
    QStringList calls_;
    QList<QThread*> threads_;
};

class RecordingBackend : public FirmwareUpdaterBase {
public:
    explicit RecordingBackend(std::shared_ptr<BackendRecord> record);
    ~RecordingBackend() override;

    bool connect(QString const& port_name) override;
    void disconnect() override;
    bool upload(QString const& firmware_path, std::function<void(int)> progress) override;
    void reset() override;
    bool verifyDeviceId(QList<uint8_t> const& device_ids) override;
    void onStartUpdate() override;
    void onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                           bool const& verify) override;
    void onDisconnectDevice() override;

private:
    std::shared_ptr<BackendRecord> record_;
};
