#include "updater/uart_firmware_updater.h"

#include <fmt/format.h>

#include <QDebug>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "modules/stm32_updater/limits.h"
#include "runtime/console.h"
#include "updater/image_file.h"
#include "updater/model_id.h"

namespace {

constexpr unsigned char kReservedEndpointIds = 1;
using stm32_updater::kMcuId;
using stm32_updater::kWordSize;

// The whole file, padded with zeros to whole words; nothing when it cannot be opened or read to its
// end.
std::optional<std::vector<std::byte>> ReadPaddedImage(QString const& path)
{
    auto const bytes = ReadImageFile(path);
    if (!bytes) {
        return std::nullopt;
    }
    auto const* const begin = reinterpret_cast<std::byte const*>(bytes->constData());
    std::vector<std::byte> image(begin, begin + bytes->size());
    while (image.size() % kWordSize != 0) {
        image.push_back(std::byte{0});
    }
    return image;
}

}  // namespace

UartFirmwareUpdater::UartFirmwareUpdater(QString const& firmware_path, unsigned start_address,
                                         unsigned programming_address, unsigned otp_address,
                                         unsigned long otp_size, unsigned boot_mode_address,
                                         QString const& fw_target_type, QObject* parent)
    : FirmwareUpdaterBase(parent),
      start_address_(start_address),
      programming_address_(programming_address),
      otp_address_(otp_address),
      otp_size_(otp_size),
      boot_mode_address_(boot_mode_address),
      fw_target_type_(fw_target_type),
      dispatcher_({}, kReservedEndpointIds)
{
    firmware_path_ = firmware_path;
    uart_interface_ = std::make_unique<UartInterface>(&tx_semaphore_, this);
    // The desktop has no reset and boot-select lines: the user puts the unit into boot mode.
    updater_ = std::make_unique<stm32_updater::Stm32UartUpdater>(
        [](bool) {}, [](bool) {}, *uart_interface_, dispatcher_, update_mutex_, kMcuId, false);
}

UartFirmwareUpdater::~UartFirmwareUpdater()
{
    StopUartThread();
}

bool UartFirmwareUpdater::connect(QString const& port)
{
    // A failed connect leaves its port open, and it cannot be opened twice.
    disconnect();
    uart_thread_ = std::make_unique<QThread>();
    uart_ = new Uart(port, stm32_updater::kBaudRate, &tx_semaphore_, nullptr, GetRecord(),
                     [this, &port](QString const& reason) {
                         notes_.WriteLast(port + QStringLiteral(" cannot be opened: ") + reason +
                                          QStringLiteral("; the program ends"));
                     });
    uart_->moveToThread(uart_thread_.get());
    uart_thread_->start(QThread::InheritPriority);
    QObject::connect(uart_thread_.get(), &QThread::finished, uart_, &QObject::deleteLater);
    QObject::connect(uart_interface_.get(), &UartInterface::TransmitData, uart_, &Uart::onTransmit);
    QObject::connect(uart_interface_.get(), &UartInterface::SetRxCallback, uart_,
                     &Uart::onSetRxCallback);
    auto const ok = updater_->ConnectDevice();
    NoteFacts();
    return ok;
}

void UartFirmwareUpdater::NoteFacts()
{
    auto const& facts = updater_->Facts();
    notes_.failure = QString::fromStdString(facts.failure);
    if (facts.bootloader_version) {
        auto const chip = facts.product_id
                              ? fmt::format("STM32 with product id 0x{:04x}, ", *facts.product_id)
                              : std::string();
        notes_.unit = QString::fromStdString(fmt::format("{}bootloader version {}.{}", chip,
                                                         *facts.bootloader_version >> 4,
                                                         *facts.bootloader_version & 0xF));
    }
    notes_.image_size = facts.image_size;
    notes_.written = facts.written;
    notes_.figures = ListFigures(
        {DescribePhase(QStringLiteral("erase"), facts.erase_time),
         DescribePhase(QStringLiteral("writing"), facts.write_time),
         facts.write_time ? DescribeCount(facts.refused_blocks, QStringLiteral("refused block"))
                          : QString(),
         facts.slowest_answer ? QStringLiteral("slowest answer %1 ms to %2")
                                    .arg(facts.slowest_answer->count())
                                    .arg(QString::fromStdString(facts.slowest_request))
                              : QString()});
}

void UartFirmwareUpdater::disconnect()
{
    // By the sender alone: the receiver may be gone.
    QObject::disconnect(uart_interface_.get(), &UartInterface::TransmitData, nullptr, nullptr);
    QObject::disconnect(uart_interface_.get(), &UartInterface::SetRxCallback, nullptr, nullptr);
    StopUartThread();
}

void UartFirmwareUpdater::StopUartThread()
{
    if (!uart_thread_) {
        return;
    }
    uart_thread_->quit();
    uart_thread_->wait();
    uart_thread_.reset();
    uart_ = nullptr;
    uart_interface_->DropExtraTokens();
}

bool UartFirmwareUpdater::upload(QString const& path, std::function<void(int)> progress)
{
    auto const image = ReadPaddedImage(path);
    if (!image) {
        kelvane::PrintToConsole(
            fmt::format("File {} not found/could not be opened\n", path.toLocal8Bit().constData()));
        notes_.failure = QStringLiteral("the image cannot be read");
        return false;
    }
    notes_.image_size = image->size();
    // Nobody would report the engine's bytes as written.
    if (!IsConnected()) {
        qWarning("UartFirmwareUpdater: no unit is connected");
        notes_.failure = QStringLiteral("no unit is connected");
        return false;
    }
    auto const ok = updater_->Update(
        *image,
        [progress = std::move(progress)](IFwUpdater::State /*state*/, unsigned percent) {
            if (progress) {
                progress(static_cast<int>(percent));
            }
        },
        programming_address_);
    updater_->DisconnectDevice();
    NoteFacts();
    if (!ok && image->size() < stm32_updater::kTrailerSize) {
        notes_.failure = QStringLiteral("the image is smaller than %1 bytes")
                             .arg(stm32_updater::kSmallestImageFile);
    }
    return ok;
}

void UartFirmwareUpdater::reset()
{
    if (IsConnected()) {
        updater_->ExitDfu(start_address_, boot_mode_address_);
        NoteFacts();
        if (!notes_.failure.isEmpty()) {
            notes_.NotRestarted();
        }
    }
}

bool UartFirmwareUpdater::verifyDeviceId(QList<uint8_t> const& device_ids)
{
    if (SkipsModelCheck(fw_target_type_)) {
        notes_.model = kNoModelCheck;
        return true;
    }
    if (!IsConnected()) {
        return false;
    }
    auto const otp = updater_->GetOtp(otp_address_, otp_size_);
    NoteFacts();
    notes_.model = DescribeModelIn(otp, device_ids, notes_.failure);
    return checkModelIdInOtp(otp, device_ids);
}

void UartFirmwareUpdater::onStartUpdate()
{
    RunUpdate();
}

void UartFirmwareUpdater::onConnectToDevice(QString const& port, QList<uint8_t> device_ids,
                                            bool const& verify)
{
    ConnectAndVerify(port, device_ids, verify);
}

void UartFirmwareUpdater::onDisconnectDevice()
{
    DisconnectAndReport();
}
