#include "updater/mcuboot_serial_updater.h"

#include <QDebug>
#include <QFile>
#include <QSerialPort>
#include <QThread>
#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "mcuboot/cbor_dump.h"
#include "mcuboot/request_maps.h"
#include "mcuboot/smp_frame.h"
#include "updater/model_id.h"

namespace {

using mcuboot::kSmpRead;
using mcuboot::kSmpWrite;

// SMP groups and, under each, its commands.
constexpr uint16_t kOsGroup = 0;
constexpr uint8_t kResetCommand = 5;
constexpr uint16_t kImageGroup = 1;
constexpr uint8_t kImageStateCommand = 0;
constexpr uint8_t kUploadCommand = 1;
constexpr uint8_t kEraseCommand = 5;
constexpr uint16_t kOtpGroup = 64;  // the vendor's own
constexpr uint8_t kOtpReadCommand = 0;

// Milliseconds, counted as sendAndReceive counts them.
constexpr int kQueryTimeout = 2000;
constexpr int kFirstChunkTimeout = 10000;  // the unit may erase its slot first
constexpr int kChunkTimeout = 3000;
constexpr int kEraseTimeout = 30000;
constexpr int kCommandTimeout = 5000;

// Milliseconds that really pass. The unit needs a moment between two lines, and a USB bridge one to
// hand on what it has.
constexpr unsigned long kAfterOpen = 100;
constexpr unsigned long kBeforeRequest = 10;
constexpr int kPass = 3;

constexpr size_t kEmptyMapBuffer = 8;
constexpr size_t kOtpRequestBuffer = 16;
constexpr size_t kUploadBuffer = 2048;
// With this, the longest request line (2039 bytes) stays within the unit's line buffer.
constexpr int32_t kChunkSize = 1483;

// How many answers in a row may ask for the same offset again, and how many may go back without one
// in between that goes beyond all before, until the unit is taken to be stuck. A unit that lost a
// line asks again once or twice.
constexpr int kMaxStalls = 16;

constexpr uint32_t kModelIdKey = 0x01234711;
constexpr uint32_t kSerialNumberKey = 0x3CA6A4AF;
constexpr int32_t kOtpKeyNotFound = 5;

uint8_t const* GetBytes(QByteArray const& bytes)
{
    return reinterpret_cast<uint8_t const*>(bytes.constData());
}

template <size_t Size>
QByteArray ToByteArray(std::array<uint8_t, Size> const& buffer, int size)
{
    return {reinterpret_cast<char const*>(buffer.data()), size};
}

QByteArray MakeEmptyMap()
{
    std::array<uint8_t, kEmptyMapBuffer> buffer;
    return ToByteArray(buffer, McubootSerialUpdater::cborEncodeEmptyMap(buffer));
}

// The error that an answer tells of; an answer that names none is a success.
int32_t GetErrorCode(QByteArray const& answer)
{
    return McubootSerialUpdater::cborDecodeMapInt(answer, "rc").value_or(0);
}

// The whole file; nothing when it cannot be opened or read to its end, or is longer than offsets
// reach.
std::optional<QByteArray> ReadImage(QString const& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > std::numeric_limits<int32_t>::max()) {
        return std::nullopt;
    }
    auto const size = file.size();
    auto image = file.readAll();
    // QFile tells of an error only when it strikes at the first byte; one on the way just leaves
    // the rest out.
    if (file.error() != QFileDevice::NoError || image.size() < size) {
        return std::nullopt;
    }
    return image;
}

int GetPercent(int32_t offset, int32_t total)
{
    auto const percent = int64_t{offset} * 100 / total;
    return static_cast<int>(std::min<int64_t>(percent, std::numeric_limits<int>::max()));
}

// Whether an upload gets anywhere, judged by the offsets that the unit asks for.
class StallGuard {
public:
    // `previous`: the offset that was sent, `offset`: the one that is asked for now. False once the
    // unit is taken to be stuck. Every upload comes to that or to its end: between two furthest
    // offsets there are only so many ways back, and from each only so many steps forward.
    bool Accept(int32_t previous, int32_t offset)
    {
        if (offset == previous) {
            ++repeats_;
        } else if (offset < previous) {
            ++rewinds_;
        } else {
            repeats_ = 0;
        }
        if (offset > furthest_) {
            furthest_ = offset;
            rewinds_ = 0;
        }
        return repeats_ < kMaxStalls && rewinds_ < kMaxStalls;
    }

private:
    int32_t furthest_ = 0;
    int repeats_ = 0;  // since the last way forward
    int rewinds_ = 0;  // since the furthest offset
};

}  // namespace

McubootSerialUpdater::McubootSerialUpdater(QString const& firmware_path, unsigned baud,
                                           bool verbose, QString fw_target_type, QObject* parent)
    : FirmwareUpdaterBase(parent),
      baud_(baud),
      verbose_(verbose),
      fw_target_type_(std::move(fw_target_type))
{
    firmware_path_ = firmware_path;
}

McubootSerialUpdater::~McubootSerialUpdater()
{
    McubootSerialUpdater::disconnect();
}

// ---- Connection ----

bool McubootSerialUpdater::connect(QString const& port_name)
{
    // The same port could not be opened a second time.
    disconnect();
    port_ = new QSerialPort(port_name, this);
    port_->setBaudRate(static_cast<qint32>(baud_), QSerialPort::AllDirections);
    port_->setDataBits(QSerialPort::Data8);
    port_->setParity(QSerialPort::NoParity);
    port_->setStopBits(QSerialPort::OneStop);
    port_->setFlowControl(QSerialPort::NoFlowControl);
    if (!port_->open(QIODevice::ReadWrite)) {
        delete std::exchange(port_, nullptr);
        return false;
    }
    port_->clear(QSerialPort::AllDirections);
    QThread::msleep(kAfterOpen);
    DiscardInput();
    if (!readImageState()) {
        disconnect();
        return false;
    }
    return true;
}

void McubootSerialUpdater::disconnect()
{
    if (port_ == nullptr) {
        return;
    }
    port_->close();
    std::exchange(port_, nullptr)->deleteLater();
}

// ---- One request and its answer ----

// What has arrived is in the port object only after a wait has fetched it.
void McubootSerialUpdater::DiscardInput()
{
    port_->waitForReadyRead(0);
    port_->readAll();
}

QByteArray McubootSerialUpdater::BuildNextPacket(uint8_t operation, uint16_t group, uint8_t id,
                                                 QByteArray const& payload)
{
    return buildPacket(operation, group, id, payload, sequence_++);
}

QByteArray McubootSerialUpdater::sendAndReceive(QByteArray const& packet, int timeout)
{
    if (port_ == nullptr) {
        return {};
    }
    QThread::msleep(kBeforeRequest);
    DiscardInput();
    port_->clear(QSerialPort::AllDirections);
    port_->write(packet);
    port_->flush();
    QThread::msleep(kPass);

    QByteArray answer;
    for (int elapsed = 0; elapsed < timeout; elapsed += kPass) {
        port_->waitForReadyRead(kPass);
        answer.append(port_->readAll());
        if (!answer.endsWith('\n')) {
            continue;
        }
        QThread::msleep(kPass);
        port_->waitForReadyRead(0);
        if (port_->bytesAvailable() == 0) {
            return answer;
        }
        answer.append(port_->readAll());
    }
    return answer;
}

bool McubootSerialUpdater::readImageState()
{
    auto const packet = BuildNextPacket(kSmpRead, kImageGroup, kImageStateCommand, MakeEmptyMap());
    auto const raw = sendAndReceive(packet, kQueryTimeout);
    if (raw.isEmpty()) {
        if (verbose_) {
            qWarning() << "McubootSerialUpdater::readImageState: no response from device";
        }
        return false;
    }
    auto const answer = parseResponse(raw);
    if (answer.isEmpty()) {
        if (verbose_) {
            qWarning() << "McubootSerialUpdater::readImageState: parse error";
        }
        return false;
    }
    if (verbose_) {
        dumpCbor(answer, QStringLiteral("image-state"));
    }
    if (auto const error = GetErrorCode(answer); error != 0) {
        qWarning() << "McubootSerialUpdater::readImageState: rc=" << error;
        return false;
    }
    return true;
}

std::optional<QByteArray> McubootSerialUpdater::readOtpData(uint32_t key)
{
    std::array<uint8_t, kOtpRequestBuffer> buffer;
    auto const size = mcuboot::cborEncodeOtpRequest(buffer, key);
    if (size < 0) {
        qWarning() << "McubootSerialUpdater::readOtpData: cbor encode error";
        return std::nullopt;
    }
    auto const packet =
        BuildNextPacket(kSmpRead, kOtpGroup, kOtpReadCommand, ToByteArray(buffer, size));
    auto const raw = sendAndReceive(packet, kQueryTimeout);
    if (raw.isEmpty()) {
        qWarning() << "McubootSerialUpdater::readOtpData: no response";
        return std::nullopt;
    }
    auto const answer = parseResponse(raw);
    if (answer.isEmpty()) {
        qWarning() << "McubootSerialUpdater::readOtpData: parse error";
        return std::nullopt;
    }
    auto const error = GetErrorCode(answer);
    if (error == kOtpKeyNotFound) {
        qWarning().noquote() << QStringLiteral(
                                    "McubootSerialUpdater::readOtpData: key 0x%1 not found in OTP")
                                    .arg(key, 0, 16);
        return std::nullopt;
    }
    if (error != 0) {
        qWarning() << "McubootSerialUpdater::readOtpData: rc=" << error;
        return std::nullopt;
    }
    auto data = cborDecodeMapBstr(answer, "data");
    if (!data || data->isEmpty()) {
        qWarning() << "McubootSerialUpdater::readOtpData: 'data' key not found or empty";
        return std::nullopt;
    }
    return data;
}

std::optional<uint8_t> McubootSerialUpdater::readOtpKey(uint32_t key)
{
    auto const data = readOtpData(key);
    return data ? std::optional(static_cast<uint8_t>(data->front())) : std::nullopt;
}

std::optional<QString> McubootSerialUpdater::readOtpKeyStr(uint32_t key)
{
    auto const data = readOtpData(key);
    if (!data) {
        return std::nullopt;
    }
    auto const end = data->indexOf('\0');
    return QString::fromLatin1(end < 0 ? *data : data->first(end));
}

bool McubootSerialUpdater::verifyDeviceId(QList<uint8_t> const& device_ids)
{
    if (SkipsModelCheck(fw_target_type_)) {
        return true;
    }
    auto const model_id = readOtpKey(kModelIdKey);
    if (!model_id) {
        if (verbose_) {
            qWarning() << "McubootSerialUpdater::verifyDeviceId: failed to read model ID from OTP";
        }
        return false;
    }
    if (verbose_) {
        auto const serial_number = readOtpKeyStr(kSerialNumberKey).value_or(QString());
        qDebug().noquote() << "McubootSerialUpdater::verifyDeviceId: device model ID"
                           << int{*model_id} << "serial number" << serial_number;
    }
    return IsListed(*model_id, device_ids);
}

bool McubootSerialUpdater::IsListed(uint8_t model_id, QList<uint8_t> const& device_ids) const
{
    auto const listed = device_ids.contains(model_id);
    if (verbose_ && listed) {
        qDebug() << "McubootSerialUpdater::verifyDeviceId: model ID" << int{model_id} << "OK";
    } else if (verbose_) {
        qWarning() << "McubootSerialUpdater::verifyDeviceId: model ID mismatch:" << int{model_id};
    }
    return listed;
}

bool McubootSerialUpdater::eraseImage()
{
    auto const packet = BuildNextPacket(kSmpWrite, kImageGroup, kEraseCommand, MakeEmptyMap());
    auto const raw = sendAndReceive(packet, kEraseTimeout);
    if (raw.isEmpty()) {
        qWarning() << "McubootSerialUpdater::eraseImage: no response (timeout)";
        return false;
    }
    auto const answer = parseResponse(raw);
    if (answer.isEmpty()) {
        qWarning() << "McubootSerialUpdater::eraseImage: parse error";
        return false;
    }
    dumpCbor(answer, QStringLiteral("image-erase"));
    if (auto const error = GetErrorCode(answer); error != 0) {
        qWarning() << "McubootSerialUpdater::eraseImage: rc=" << error;
        return false;
    }
    qDebug() << "McubootSerialUpdater::eraseImage: success";
    return true;
}

void McubootSerialUpdater::reset()
{
    if (port_ == nullptr) {
        return;
    }
    port_->write(BuildNextPacket(kSmpWrite, kOsGroup, kResetCommand, MakeEmptyMap()));
    port_->flush();
}

QByteArray McubootSerialUpdater::sendSmpCommand(uint8_t operation, uint16_t group, uint8_t id,
                                                QByteArray const& payload)
{
    if (port_ == nullptr) {
        return {};
    }
    auto const packet =
        BuildNextPacket(operation, group, id, payload.isEmpty() ? MakeEmptyMap() : payload);
    auto const raw = sendAndReceive(packet, kCommandTimeout);
    if (raw.isEmpty()) {
        qWarning() << "McubootSerialUpdater::sendSmpCommand: no response"
                   << "group=" << group << "cmd=" << int{id};
        return {};
    }
    auto answer = parseResponse(raw);
    if (answer.isEmpty()) {
        qWarning() << "McubootSerialUpdater::sendSmpCommand: parse error";
        return {};
    }
    dumpCbor(answer, QStringLiteral("raw-cmd g%1/c%2").arg(group).arg(id));
    return answer;
}

// ---- The upload ----

bool McubootSerialUpdater::upload(QString const& path, std::function<void(int)> progress)
{
    auto const image = ReadImage(path);
    if (!image) {
        qWarning().noquote() << "McubootSerialUpdater: cannot open" << path;
        return false;
    }
    sequence_ = 0;
    auto const total = static_cast<int32_t>(image->size());
    StallGuard guard;
    for (int32_t offset = 0; offset < total;) {
        auto const next = UploadChunk(*image, offset);
        if (!next) {
            return false;
        }
        if (progress) {
            progress(GetPercent(*next, total));
        }
        if (!guard.Accept(offset, *next)) {
            WarnIfVerbose(QStringLiteral("device does not advance at offset %1").arg(*next));
            return false;
        }
        offset = *next;
    }
    return true;
}

// The offset to go on at; nothing when the upload has failed.
std::optional<int32_t> McubootSerialUpdater::UploadChunk(QByteArray const& image, int32_t offset)
{
    auto const total = static_cast<int32_t>(image.size());
    auto const chunk_size = std::min(kChunkSize, total - offset);
    auto const first = offset == 0;
    std::array<uint8_t, kUploadBuffer> buffer;
    auto const size =
        cborEncodeUploadChunk(buffer, GetBytes(image) + offset, static_cast<size_t>(chunk_size),
                              static_cast<uint32_t>(offset), static_cast<uint32_t>(total), first);
    if (size < 0) {
        WarnIfVerbose(QStringLiteral("cbor encode error at offset %1").arg(offset));
        return std::nullopt;
    }
    auto const packet =
        BuildNextPacket(kSmpWrite, kImageGroup, kUploadCommand, ToByteArray(buffer, size));
    auto const raw = sendAndReceive(packet, first ? kFirstChunkTimeout : kChunkTimeout);
    auto const answer = ReadUploadAnswer(raw, offset);
    if (!answer) {
        return std::nullopt;
    }
    auto const next = cborDecodeMapInt(*answer, "off").value_or(offset + chunk_size);
    if (next < 0) {
        WarnIfVerbose(QStringLiteral("device asked for offset %1").arg(next));
        return std::nullopt;
    }
    return next;
}

// The payload of the answer to the chunk at `offset`; nothing when there is none, or an error in
// it.
std::optional<QByteArray> McubootSerialUpdater::ReadUploadAnswer(QByteArray const& raw,
                                                                 int32_t offset) const
{
    if (raw.isEmpty()) {
        WarnIfVerbose(QStringLiteral("no response for upload packet at offset %1").arg(offset));
        return std::nullopt;
    }
    auto answer = parseResponse(raw);
    if (answer.isEmpty()) {
        WarnIfVerbose(
            QStringLiteral("failed to parse response for upload packet at offset %1").arg(offset));
        return std::nullopt;
    }
    if (auto const error = GetErrorCode(answer); error != 0) {
        WarnIfVerbose(QStringLiteral("device returned error code %1 for upload packet at offset %2")
                          .arg(error)
                          .arg(offset));
        return std::nullopt;
    }
    return answer;
}

void McubootSerialUpdater::WarnIfVerbose(QString const& text) const
{
    if (verbose_) {
        qWarning().noquote() << "McubootSerialUpdater:" << text;
    }
}

// ---- Slots ----

void McubootSerialUpdater::onStartUpdate()
{
    RunUpdate();
}

void McubootSerialUpdater::onConnectToDevice(QString const& port_name, QList<uint8_t> device_ids,
                                             bool const& verify)
{
    ConnectAndVerify(port_name, device_ids, verify);
}

void McubootSerialUpdater::onDisconnectDevice()
{
    DisconnectAndTell();
}

// ---- The functions of mcuboot/ ----

uint16_t McubootSerialUpdater::crc16Ccitt(uint8_t const* data, size_t length, uint16_t init)
{
    return mcuboot::crc16Ccitt(data, length, init);
}

QByteArray McubootSerialUpdater::buildPacket(uint8_t operation, uint16_t group, uint8_t id,
                                             QByteArray const& payload, uint8_t sequence)
{
    return mcuboot::buildPacket(operation, group, id, payload, sequence);
}

QByteArray McubootSerialUpdater::parseResponse(QByteArray const& raw)
{
    return mcuboot::parseResponse(raw);
}

int McubootSerialUpdater::cborEncodeEmptyMap(std::span<uint8_t> buffer)
{
    return mcuboot::cborEncodeEmptyMap(buffer);
}

int McubootSerialUpdater::cborEncodeEchoRequest(std::span<uint8_t> buffer, char const* text,
                                                size_t length)
{
    return mcuboot::cborEncodeEchoRequest(buffer, {text, length});
}

int McubootSerialUpdater::cborEncodeUploadChunk(std::span<uint8_t> buffer, uint8_t const* chunk,
                                                size_t chunk_length, uint32_t offset,
                                                uint32_t total, bool first)
{
    return mcuboot::cborEncodeUploadChunk(buffer, {chunk, chunk_length}, offset, total, first);
}

std::optional<int32_t> McubootSerialUpdater::cborDecodeMapInt(QByteArray const& payload,
                                                              std::string_view key)
{
    return mcuboot::cborDecodeMapInt(payload, key);
}

std::optional<QByteArray> McubootSerialUpdater::cborDecodeMapBstr(QByteArray const& payload,
                                                                  std::string_view key)
{
    return mcuboot::cborDecodeMapBstr(payload, key);
}

void McubootSerialUpdater::dumpCbor(QByteArray const& payload, QString const& label)
{
    mcuboot::dumpCbor(payload, label,
                      [](QString const& line) { qDebug().noquote().nospace() << line; });
}
