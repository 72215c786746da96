// The backend for units in MCUboot serial recovery mode on a serial port: the port, the slots and
// the texts of the log. The conversation and its bytes are in mcuboot/.
#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "mcuboot/exchange.h"
#include "mcuboot/queries.h"
#include "mcuboot/request_maps.h"
#include "mcuboot/smp_frame.h"
#include "mcuboot/upload.h"
#include "updater/firmware_updater_base.h"
#include "updater/serial_line.h"

// Every operation blocks its caller's thread, the window's worker thread, to which the port
// belongs. Nothing is thrown: an operation that fails returns false, nothing or no bytes, and
// leaves the port open. Only connect() and disconnect() open or close it, and its own loss closes
// it (serial_line.h); what is asked of it then is not answered.
class McubootSerialUpdater : public FirmwareUpdaterBase {
    Q_OBJECT

public:
    // baud: bits per second. verbose: write the log lines that only developers want. open_line: how
    // connect() opens its port; the tests pass in a line without one.
    McubootSerialUpdater(QString const& firmware_path, unsigned baud, bool verbose,
                         QString fw_target_type, QObject* parent,
                         LineOpener open_line = OpenSerialLine);

    // Opens the port and asks the unit for its image state. A port on which no unit in recovery
    // mode answers counts as not connected and is closed again. Closes the port of an earlier
    // connect first.
    bool connect(QString const& port_name) override;
    void disconnect() override;

    // True once the unit has acknowledged all of the image; see mcuboot/upload.h for what the unit
    // decides and what ends an upload. False also when the image cannot be read to its end; nothing
    // is sent then.
    bool upload(QString const& path, std::function<void(int)> progress) override;

    // Sends the request and returns; does nothing without a port.
    void reset() override { mcuboot::Reset(exchange_); }
    bool verifyDeviceId(QList<uint8_t> const& device_ids) override;

    // True when the unit answered without an error code. Its images are not looked at.
    bool readImageState();

    // A value of the unit's one-time-programmable area; nothing when it is missing or empty.
    std::optional<QByteArray> readOtpData(uint32_t key);
    // The first byte of such a value.
    std::optional<uint8_t> readOtpKey(uint32_t key);
    // Such a value as Latin-1 text, up to its first zero byte.
    std::optional<QString> readOtpKeyStr(uint32_t key);

    // Erases the unit's image slot. Not part of an update: the unit erases as it receives.
    bool eraseImage();

    // Sends any other request, with an empty map in place of an empty payload. Returns the answer's
    // payload, empty on failure.
    QByteArray sendSmpCommand(uint8_t operation, uint16_t group, uint8_t id,
                              QByteArray const& payload);

    // The exchange of mcuboot/exchange.h on this port; `timeout` is in milliseconds. Returns no
    // bytes without a port.
    QByteArray sendAndReceive(QByteArray const& packet, int timeout)
    {
        return exchange_.SendAndReceive(packet, std::chrono::milliseconds(timeout));
    }

    // The functions of mcuboot/ as members; see smp_frame.h, request_maps.h and cbor_dump.h.
    static uint16_t crc16Ccitt(uint8_t const* data, size_t length, uint16_t init)
    {
        return mcuboot::crc16Ccitt(data, length, init);
    }
    static QByteArray buildPacket(uint8_t operation, uint16_t group, uint8_t id,
                                  QByteArray const& payload, uint8_t sequence)
    {
        return mcuboot::buildPacket(operation, group, id, payload, sequence);
    }
    static QByteArray parseResponse(QByteArray const& raw) { return mcuboot::parseResponse(raw); }
    static int cborEncodeEmptyMap(std::span<uint8_t> buffer)
    {
        return mcuboot::cborEncodeEmptyMap(buffer);
    }
    static int cborEncodeEchoRequest(std::span<uint8_t> buffer, char const* text, size_t length)
    {
        return mcuboot::cborEncodeEchoRequest(buffer, {text, length});
    }
    static int cborEncodeUploadChunk(std::span<uint8_t> buffer, uint8_t const* chunk,
                                     size_t chunk_length, uint32_t offset, uint32_t total,
                                     bool first)
    {
        return mcuboot::cborEncodeUploadChunk(buffer, {chunk, chunk_length}, offset, total, first);
    }
    static std::optional<int32_t> cborDecodeMapInt(QByteArray const& payload, std::string_view key)
    {
        return mcuboot::cborDecodeMapInt(payload, key);
    }
    static std::optional<QByteArray> cborDecodeMapBstr(QByteArray const& payload,
                                                       std::string_view key)
    {
        return mcuboot::cborDecodeMapBstr(payload, key);
    }
    // Prints to the debug log.
    static void dumpCbor(QByteArray const& payload, QString const& label);

public Q_SLOTS:
    void onStartUpdate() override { RunUpdate(); }
    void onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                           bool const& verify) override
    {
        ConnectAndVerify(port_name, device_ids, verify);
    }
    void onDisconnectDevice() override { DisconnectAndReport(); }

private:
    bool isListed(uint8_t model_id, QList<uint8_t> const& device_ids) const;
    void noteAnswer(QString const& request, mcuboot::Answer const& answer);
    void noteUpload(mcuboot::UploadResult const& result);

    unsigned baud_;
    bool verbose_;
    QString fw_target_type_;
    LineOpener open_line_;
    std::unique_ptr<mcuboot::ILine> line_;  // the port; null while disconnected; deletion closes it
    mcuboot::Exchange exchange_;            // attached to line_; has the sequence counter
};
