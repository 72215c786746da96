// A backend without a transport: returns what the test has set, and records all calls and signals
// in their order.
#pragma once

#include <QSemaphore>
#include <QStringList>
#include <QThread>
#include <mutex>

#include "updater/firmware_updater_base.h"

class FakeUpdater : public FirmwareUpdaterBase {
public:
    explicit FakeUpdater(QString const& firmware_path = {});

    bool connect(QString const& port_name) override;
    void disconnect() override;
    bool upload(QString const& firmware_path, std::function<void(int)> progress) override;
    void reset() override;
    bool verifyDeviceId(QList<uint8_t> const& device_ids) override;
    void onStartUpdate() override;
    void onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                           bool const& verify) override;
    void onDisconnectDevice() override;

    // The calls and signals so far; signals as in backend_signals.h. Any thread.
    QStringList Events() const;
    // The thread of each of them. Any thread.
    QList<QThread*> Threads() const;

    bool connects = true;
    bool verifies = true;
    bool uploads = true;
    QList<int> percentages;                // what an upload reports
    QSemaphore* upload_may_end = nullptr;  // an upload waits for it

private:
    void Note(QString const& event);

    mutable std::mutex mutex_;
    QStringList events_;
    QList<QThread*> threads_;
};
