// A backend without a transport. Everything that happens to it is noted in a record, which outlives
// it: a test can look at it after the window, which owns its backend, is gone.
#pragma once

#include <QList>
#include <QSemaphore>
#include <QStringList>
#include <QThread>
#include <atomic>
#include <memory>
#include <mutex>

#include "updater/firmware_updater_base.h"

// Any thread.
class BackendRecord {
public:
    void Add(QString const& event);
    QStringList Events() const;
    QList<QThread*> Threads() const;                  // of each event
    qsizetype Count(QString const& beginning) const;  // events that begin with this text

    // While set, requests are handled in the base class's steps, and steps and signals are noted:
    // "connect ttyX", "verify 12 44", "upload FILE", "Connected" and so on (backend_signals.h).
    // Otherwise requests are only noted: `connect "ttyX" [12 44] verify`, "update", "disconnect".
    std::atomic<bool> answers = true;
    // How the steps end.
    std::atomic<bool> connects = true;
    std::atomic<bool> verifies = true;
    std::atomic<bool> uploads = true;
    // While set, an update takes a token of `update_may_end` before it ends, and its end is noted
    // where requests are only noted: "end of update".
    std::atomic<bool> holds_updates = false;
    QSemaphore update_may_end;
    // What an upload reports; set before it begins.
    QList<int> percentages;

private:
    mutable std::mutex mutex_;
    QStringList events_;
    QList<QThread*> threads_;
};

class FakeBackend : public FirmwareUpdaterBase {
public:
    explicit FakeBackend(std::shared_ptr<BackendRecord> record = std::make_shared<BackendRecord>(),
                         QString const& firmware_path = {});
    ~FakeBackend() override;

    BackendRecord& Record() { return *record_; }

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
    void NoteStep(QString const& step);
    void NoteSignal(QString const& signal);
    void HoldUpdate();

    std::shared_ptr<BackendRecord> record_;
};
