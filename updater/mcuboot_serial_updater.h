// The backend for units in MCUboot serial recovery mode on a serial port: the port, the waits, the
// requests and their answers. The bytes are made and read in mcuboot/.
#pragma once

#include <QByteArray>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

#include "updater/firmware_updater_base.h"

class QSerialPort;

// Every operation blocks its caller's thread, the window's worker thread, to which the port
// belongs. Nothing is thrown: an operation that fails answers false, nothing or no bytes, and
// leaves the port open. None but connect and disconnect change whether it is.
class McubootSerialUpdater : public FirmwareUpdaterBase {
    Q_OBJECT

public:
    // baud: bits per second. verbose: write the log lines that only developers want.
    McubootSerialUpdater(QString const& firmware_path, unsigned baud, bool verbose,
                         QString fw_target_type, QObject* parent);
    ~McubootSerialUpdater() override;

    // Opens the port and asks the unit for its image state: a port on which no unit in recovery
    // mode answers counts as not connected and is closed again. Drops what an earlier connect still
    // holds.
    bool connect(QString const& port_name) override;
    void disconnect() override;

    // True once the unit has acknowledged all of the image, which an empty one is at once. The unit
    // decides what is sent next: it may go back or leap ahead, and asking beyond the end ends the
    // upload. False at the first answer that is missing, unusable or an error; no chunk is repeated
    // for that. Also false when the unit asks for a negative offset or keeps asking for what it
    // had, so that every upload ends. Percentages beyond 100 tell of a unit that asked beyond the
    // end.
    bool upload(QString const& path, std::function<void(int)> progress) override;

    // Sends the request and returns; a unit that restarts gives no answer. Nothing without a port.
    void reset() override;
    bool verifyDeviceId(QList<uint8_t> const& device_ids) override;

    // True when the unit answered and told of no error. What images it has is not looked at.
    bool readImageState();

    // A value of the unit's one-time-programmable area. Nothing when there is none, or an empty
    // one.
    std::optional<QByteArray> readOtpData(uint32_t key);
    // Its first byte.
    std::optional<uint8_t> readOtpKey(uint32_t key);
    // As Latin-1 text, up to its first zero byte.
    std::optional<QString> readOtpKeyStr(uint32_t key);

    // Erases the unit's image slot. Not part of an update: the unit erases as it receives.
    bool eraseImage();

    // Any other request; an empty map is sent in place of an empty payload. The answer's payload,
    // empty on failure.
    QByteArray sendSmpCommand(uint8_t operation, uint16_t group, uint8_t id,
                              QByteArray const& payload);

    // Writes one line and collects the answer: raw bytes, up to a newline after which nothing comes
    // for 3 ms, or what had come when the time was up. The time-out, in milliseconds, is counted in
    // waits of at most 3 ms each, however short they were: an answer in many pieces uses it up
    // early. Below 1, nothing is waited for.
    QByteArray sendAndReceive(QByteArray const& packet, int timeout);

    // The functions of mcuboot/ under the backend's name; see there.
    static uint16_t crc16Ccitt(uint8_t const* data, size_t length, uint16_t init);
    static QByteArray buildPacket(uint8_t operation, uint16_t group, uint8_t id,
                                  QByteArray const& payload, uint8_t sequence);
    static QByteArray parseResponse(QByteArray const& raw);
    static int cborEncodeEmptyMap(std::span<uint8_t> buffer);
    static int cborEncodeEchoRequest(std::span<uint8_t> buffer, char const* text, size_t length);
    static int cborEncodeUploadChunk(std::span<uint8_t> buffer, uint8_t const* chunk,
                                     size_t chunk_length, uint32_t offset, uint32_t total,
                                     bool first);
    static std::optional<int32_t> cborDecodeMapInt(QByteArray const& payload, std::string_view key);
    static std::optional<QByteArray> cborDecodeMapBstr(QByteArray const& payload,
                                                       std::string_view key);
    // To the debug log.
    static void dumpCbor(QByteArray const& payload, QString const& label);

public Q_SLOTS:
    void onStartUpdate() override;
    void onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                           bool const& verify) override;
    void onDisconnectDevice() override;

private:
    void DiscardInput();
    QByteArray BuildNextPacket(uint8_t operation, uint16_t group, uint8_t id,
                               QByteArray const& payload);
    std::optional<int32_t> UploadChunk(QByteArray const& image, int32_t offset);
    std::optional<QByteArray> ReadUploadAnswer(QByteArray const& raw, int32_t offset) const;
    void WarnIfVerbose(QString const& text) const;
    bool IsListed(uint8_t model_id, QList<uint8_t> const& device_ids) const;

    unsigned baud_;
    bool verbose_;
    QString fw_target_type_;
    QSerialPort* port_ = nullptr;  // owned, a child; null while disconnected
    uint8_t sequence_ = 0;
};
