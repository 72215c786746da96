// The one interface through which the window drives a transport. A backend lives on the window's
// worker thread; every call reaches it, and every answer leaves it, as a queued signal.
#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <cstdint>
#include <functional>

// The result of a connect, verify or disconnect.
enum class ConnectionStatus {
    Connected = 0,
    Disconnected = 1,
    VerificationFailed = 2,  // a unit answered, but this firmware is not meant for it
};

class FirmwareUpdaterBase : public QObject {
    Q_OBJECT

public:
    // Not QObject's connect and disconnect, which these hide: write QObject::connect for those.
    // port_name: a serial port's name; the USB backend does not use it. True when open.
    virtual bool connect(QString const& port_name) = 0;
    virtual void disconnect() = 0;

    // Writes the image; calls `progress` with a percentage as it goes, normally 0 to 100; a
    // receiver must bear more. True on success.
    virtual bool upload(QString const& firmware_path, std::function<void(int)> progress) = 0;

    // Makes the unit leave its bootloader and start the new firmware.
    virtual void reset() = 0;

    // Reads the unit's model identifier and tells whether it is in the list.
    virtual bool verifyDeviceId(QList<uint8_t> const& device_ids) = 0;

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

    // The slots of a backend that has a port to open and whose upload runs to its end in one call.
    // Exactly one UpdateFinished follows each UpdateStarted.
    void RunUpdate();
    void ConnectAndVerify(QString const& port_name, QList<uint8_t> const& device_ids, bool verify);
    void DisconnectAndTell();

    QString firmware_path_;
};
