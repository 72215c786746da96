// The interface through which the window uses a transport. A backend lives on the window's worker
// thread; calls and results cross the threads as queued signals.
#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <atomic>
#include <cstdint>
#include <functional>
#include <utility>

#include "record/sink.h"
#include "updater/session_notes.h"

// The result of a connect, verify or disconnect.
enum class ConnectionStatus {
    Connected = 0,
    Disconnected = 1,
    VerificationFailed = 2,  // a unit answered, but this firmware is for a different model
};

class FirmwareUpdaterBase : public QObject {
    Q_OBJECT

public:
    // Hide QObject's connect and disconnect: write QObject::connect for those. port_name: the name
    // of a serial port; the USB backend ignores it. True when open.
    virtual bool connect(QString const& port_name) = 0;
    virtual void disconnect() = 0;

    // Writes the image; true on success. Calls `progress` with a percentage as it goes, normally 0
    // to 100; a receiver must tolerate more.
    virtual bool upload(QString const& firmware_path, std::function<void(int)> progress) = 0;

    // Makes the unit leave its bootloader and start the new firmware.
    virtual void reset() = 0;

    // Reads the unit's model identifier. True when it is in the list.
    virtual bool verifyDeviceId(QList<uint8_t> const& device_ids) = 0;

    // Where sentences about the sessions go, for support, and where those that are only counted.
    // Called on the backend's thread. Before the first connect.
    void SetNotes(SessionNotes::Sink sink, SessionNotes::Sink held_back = {})
    {
        notes_.SetSink(std::move(sink), std::move(held_back));
    }
    // Each request to connect begins a session in `record`, which gets the bytes of all lines. To
    // be called before the first request; `record` must outlive the backend. Without it, nothing is
    // recorded.
    void SetRecord(record::ISink& record) { record_ = &record; }

    // Whether an update runs, and so would outlive the window. Any thread.
    bool IsUpdating() const { return is_updating_; }

Q_SIGNALS:
    void UpdateStarted();
    void UpdateFinished(bool status);
    void EraseStarted();   // USB only
    void EraseFinished();  // USB only
    void ProgressUpdate(int percent);
    void UpdateConnectionStatus(ConnectionStatus status);

public Q_SLOTS:
    virtual void onStartUpdate() = 0;
    virtual void onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                                   bool const& verify) = 0;
    virtual void onDisconnectDevice() = 0;

protected:
    explicit FirmwareUpdaterBase(QObject* parent);

    // The slots of a backend that has a port to open and whose upload returns when it has ended.
    // Exactly one UpdateFinished follows each UpdateStarted.
    void RunUpdate();
    void ConnectAndVerify(QString const& port_name, QList<uint8_t> const& device_ids, bool verify);
    void DisconnectAndReport();

    // The two ends of an update. A backend that has no RunUpdate() calls them itself.
    void BeginUpdate();
    void EndUpdate() { is_updating_ = false; }

    record::ISink& GetRecord() const { return *record_; }

    QString firmware_path_;
    SessionNotes notes_;

private:
    std::atomic<bool> is_updating_{false};
    record::ISink* record_ = &record::NoSink();
};
