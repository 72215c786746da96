#include "updater/mcuboot_serial_updater.h"

#include <QDebug>
#include <limits>
#include <utility>

#include "mcuboot/causes.h"
#include "mcuboot/cbor_dump.h"
#include "updater/image_file.h"
#include "updater/model_id.h"
#include "updater/recorded_line.h"

namespace {

using mcuboot::Outcome;

// Logs the failure of a single request; no other place has these texts. `no_answer`: the text for
// an operation that received nothing.
void WarnOfFailure(char const* operation, mcuboot::Answer const& answer, QString const& no_answer)
{
    auto const prefix = QStringLiteral("McubootSerialUpdater::%1: ").arg(QLatin1String(operation));
    switch (answer.outcome) {
        case Outcome::kNotEncoded:
            qWarning().noquote() << prefix + QStringLiteral("cbor encode error");
            return;
        case Outcome::kNoAnswer:
            qWarning().noquote() << prefix + no_answer;
            return;
        case Outcome::kUnusable:
            qWarning().noquote() << prefix + QStringLiteral("parse error");
            return;
        case Outcome::kErrorCode:
            qWarning().noquote() << prefix + QStringLiteral("rc=") << answer.error_code;
            return;
        case Outcome::kNoData:
            qWarning().noquote() << prefix + QStringLiteral("'data' key not found or empty");
            return;
        case Outcome::kSuccess:
        case Outcome::kNegativeOffset:
        case Outcome::kStalled:
            return;
    }
}

// The same for an upload.
QString DescribeFailure(mcuboot::UploadResult const& result)
{
    switch (result.outcome) {
        case Outcome::kNotEncoded:
            return QStringLiteral("cbor encode error at offset %1").arg(result.offset);
        case Outcome::kNoAnswer:
            return QStringLiteral("no response for upload packet at offset %1").arg(result.offset);
        case Outcome::kUnusable:
            return QStringLiteral("failed to parse response for upload packet at offset %1")
                .arg(result.offset);
        case Outcome::kErrorCode:
            return QStringLiteral("device returned error code %1 for upload packet at offset %2")
                .arg(result.error_code)
                .arg(result.offset);
        case Outcome::kNegativeOffset:
            return QStringLiteral("device asked for offset %1").arg(result.offset);
        case Outcome::kStalled:
            return QStringLiteral("device does not advance at offset %1").arg(result.offset);
        case Outcome::kSuccess:
        case Outcome::kNoData:
            break;
    }
    return {};
}

}  // namespace

McubootSerialUpdater::McubootSerialUpdater(QString const& firmware_path, unsigned baud,
                                           bool verbose, QString fw_target_type, QObject* parent,
                                           LineOpener open_line)
    : FirmwareUpdaterBase(parent),
      baud_(baud),
      verbose_(verbose),
      fw_target_type_(std::move(fw_target_type)),
      open_line_(std::move(open_line))
{
    firmware_path_ = firmware_path;
}

// ---- Connection ----

bool McubootSerialUpdater::connect(QString const& port_name)
{
    // The same port could not be opened a second time.
    disconnect();
    QString reason;
    line_ = open_line_(port_name, baud_, this, &reason);
    if (!line_) {
        notes_.failure = QStringLiteral("the port cannot be opened: ") + reason;
        return false;
    }
    line_ = RecordLine(std::move(line_), GetRecord(), port_name, baud_);
    exchange_.Attach(*line_);
    if (!readImageState()) {
        disconnect();
        return false;
    }
    return true;
}

void McubootSerialUpdater::disconnect()
{
    exchange_.Detach();
    line_.reset();
}

// ---- Single requests ----

bool McubootSerialUpdater::readImageState()
{
    auto const answer = mcuboot::QueryImageState(exchange_);
    if (verbose_ && !answer.payload.isEmpty()) {
        dumpCbor(answer.payload, QStringLiteral("image-state"));
    }
    if (verbose_ || answer.outcome == Outcome::kErrorCode) {
        WarnOfFailure("readImageState", answer, QStringLiteral("no response from device"));
    }
    noteAnswer(QStringLiteral("image state"), answer);
    if (!answer.payload.isEmpty()) {
        notes_.unit = QStringLiteral("MCUboot serial recovery");
    }
    return answer.outcome == Outcome::kSuccess;
}

void McubootSerialUpdater::noteAnswer(QString const& request, mcuboot::Answer const& answer)
{
    auto const cause = mcuboot::DescribeCause(answer);
    notes_.failure = cause.isEmpty() ? QString() : request + QStringLiteral(": ") + cause;
}

std::optional<QByteArray> McubootSerialUpdater::readOtpData(uint32_t key)
{
    auto const [answer, data] = mcuboot::QueryOtp(exchange_, key);
    noteAnswer(QStringLiteral("OTP value 0x%1").arg(key, 8, 16, QLatin1Char('0')), answer);
    if (answer.error_code == mcuboot::kOtpKeyNotFound) {
        qWarning().noquote() << QStringLiteral(
                                    "McubootSerialUpdater::readOtpData: key 0x%1 not found in OTP")
                                    .arg(key, 0, 16);
    } else {
        WarnOfFailure("readOtpData", answer, QStringLiteral("no response"));
    }
    return answer.outcome == Outcome::kSuccess ? std::optional(data) : std::nullopt;
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
        notes_.model = kNoModelCheck;
        return true;
    }
    auto const model_id = readOtpKey(kModelIdTag);
    notes_.model = DescribeModel({.model = model_id, .serial_number = {}}, device_ids,
                                 QStringLiteral("no model: ") + notes_.failure);
    if (!model_id) {
        if (verbose_) {
            qWarning() << "McubootSerialUpdater::verifyDeviceId: failed to read model ID from OTP";
        }
        return false;
    }
    if (verbose_) {
        auto const serial_number = readOtpKeyStr(kSerialNumberTag).value_or(QString());
        qDebug().noquote() << "McubootSerialUpdater::verifyDeviceId: device model ID"
                           << int{*model_id} << "serial number" << serial_number;
    }
    return isListed(*model_id, device_ids);
}

bool McubootSerialUpdater::isListed(uint8_t model_id, QList<uint8_t> const& device_ids) const
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
    auto const answer = mcuboot::EraseImage(exchange_);
    if (!answer.payload.isEmpty()) {
        dumpCbor(answer.payload, QStringLiteral("image-erase"));
    }
    WarnOfFailure("eraseImage", answer, QStringLiteral("no response (timeout)"));
    auto const ok = answer.outcome == Outcome::kSuccess;
    if (ok) {
        qDebug() << "McubootSerialUpdater::eraseImage: success";
    }
    return ok;
}

QByteArray McubootSerialUpdater::sendSmpCommand(uint8_t operation, uint16_t group, uint8_t id,
                                                QByteArray const& payload)
{
    if (!line_) {
        return {};
    }
    auto const answer = mcuboot::SendCommand(exchange_, {operation, group, id, payload});
    if (answer.payload.isEmpty()) {
        WarnOfFailure("sendSmpCommand", answer,
                      QStringLiteral("no response group= %1 cmd= %2").arg(group).arg(id));
    } else {
        dumpCbor(answer.payload, QStringLiteral("raw-cmd g%1/c%2").arg(group).arg(id));
    }
    return answer.payload;
}

// ---- The upload ----

bool McubootSerialUpdater::upload(QString const& path, std::function<void(int)> progress)
{
    // The protocol has no larger offset.
    auto const image = ReadImageFile(path, std::numeric_limits<int32_t>::max());
    if (!image) {
        qWarning().noquote() << "McubootSerialUpdater: cannot open" << path;
        notes_.failure = QStringLiteral("the image cannot be read");
        return false;
    }
    auto const result = mcuboot::Upload(exchange_, *image, progress);
    noteUpload(result);
    if (verbose_ && result.outcome != Outcome::kSuccess) {
        qWarning().noquote() << "McubootSerialUpdater:" << DescribeFailure(result);
    }
    return result.outcome == Outcome::kSuccess;
}

void McubootSerialUpdater::noteUpload(mcuboot::UploadResult const& result)
{
    auto const& figures = result.figures;
    notes_.image_size = static_cast<size_t>(figures.image_size);
    notes_.written = static_cast<size_t>(figures.acknowledged);
    if (!line_) {
        notes_.failure = QStringLiteral("no unit is connected");
        return;
    }
    notes_.failure = result.cause;
    if (!figures.first_answer) {
        return;
    }
    notes_.figures = ListFigures(
        {DescribePhase(QStringLiteral("first answer, with the erase,"), figures.first_answer),
         DescribeCount(figures.repeated_chunks, QStringLiteral("repeated chunk")),
         figures.slowest_answer ? QStringLiteral("slowest other answer %1 ms at offset %2")
                                      .arg(figures.slowest_answer->count())
                                      .arg(figures.slowest_offset)
                                : QString()});
}

void McubootSerialUpdater::dumpCbor(QByteArray const& payload, QString const& label)
{
    mcuboot::dumpCbor(payload, label,
                      [](QString const& line) { qDebug().noquote().nospace() << line; });
}
