#include "tests/cuts/serial_transport.h"

#include <algorithm>
#include <stdexcept>

#include "mcuboot/limits.h"
#include "modules/stm32_updater/limits.h"
#include "simulator/bootloaders/mcuboot_recovery.h"
#include "simulator/bootloaders/stm32_bootloader.h"
#include "simulator/chips/otp_image.h"
#include "tests/support/pattern_image.h"
#include "updater/mcuboot_serial_updater.h"
#include "updater/uart_firmware_updater.h"

namespace cuts {
namespace {

using namespace std::chrono_literals;
using simulator::JournalEntry;

// ---- UART ----

// Three blocks and the trailer; whole quad words.
constexpr size_t kUartImageSize = 3 * stm32_updater::kMaxBlock;
constexpr uint32_t kBootMode = 0x4000A414;  // a backup register
constexpr uint32_t kOtp = simulator::kChips.front().otp_address;
constexpr size_t kOtpSize = 512;

std::unique_ptr<simulator::SerialBootloader> MakeUartUnit()
{
    simulator::OtpImage otp(kOtpSize);
    otp.SetModelId(3, kUnitModel);
    simulator::Stm32BootloaderOptions options;
    options.otp = otp.Bytes();
    options.boot_mode_address = kBootMode;
    return std::make_unique<simulator::Stm32Bootloader>(options);
}

std::unique_ptr<FirmwareUpdaterBase> MakeUartBackend(QString const& image_path)
{
    return std::make_unique<UartFirmwareUpdater>(image_path, simulator::kFlashStart,
                                                 simulator::kFlashStart, kOtp, kOtpSize, kBootMode,
                                                 QString(), nullptr);
}

std::vector<SerialStep> ListUartSteps()
{
    using enum AttemptResult;
    constexpr std::chrono::milliseconds kAnswer = stm32_updater::kAnswerTimeout;
    constexpr std::chrono::milliseconds kErase = stm32_updater::kExtendedEraseTimeout;
    auto const is_trailer = [](JournalEntry const& entry) {
        return entry.size == stm32_updater::kTrailerSize;
    };
    auto const is_image = [](JournalEntry const& entry) {
        return entry.address != kBootMode && entry.size != stm32_updater::kTrailerSize;
    };
    auto const is_marker = [](JournalEntry const& entry) { return entry.address == kBootMode; };
    return {
        {"sync", "synchronisation", kNoUnit, kAnswer, "Init con"},
        {"get", "Get", kNoUnit, kAnswer, "Get"},
        {"get-id", "Get ID", kNoUnit, kAnswer, "Get ID"},
        {"read", "Read Memory (OTP area)", kRefused, kAnswer, "Read"},
        {"get-version", "Get Version", kFailed, kAnswer, "Get Ver Rops"},
        {"extended-erase", "Extended Erase", kFailed, kErase, "Erase Ext"},
        {"write", "Write Memory (image)", kFailed, kAnswer, "Write", is_image},
        {"write", "Write Memory (trailer)", kFailed, kAnswer, "Write", is_trailer},
        {"write", "Write Memory (boot-mode marker)", kDone, kAnswer, "Write", is_marker},
        {"go", "Go", kDone, kAnswer, "Write"},
    };
}

// ---- MCUboot ----

// Four chunks, the last of 16 bytes or less.
constexpr size_t kMcubootImageSize = (3 * mcuboot::kChunkSize + 16) / 16 * 16;

std::unique_ptr<simulator::SerialBootloader> MakeMcubootUnit()
{
    simulator::McubootRecoveryOptions options;
    options.otp[simulator::kModelIdKey] = {std::byte{kUnitModel}};
    return std::make_unique<simulator::McubootRecovery>(options);
}

std::unique_ptr<FirmwareUpdaterBase> MakeMcubootBackend(QString const& image_path)
{
    return std::make_unique<McubootSerialUpdater>(image_path, kDefaultMcubootBaud, false, QString(),
                                                  nullptr);
}

// The time-outs count waits, and a wait that should take 3 ms takes up to 5.
constexpr std::chrono::milliseconds ToRealTime(std::chrono::milliseconds timeout)
{
    return timeout / mcuboot::kPass * (mcuboot::kPass + 2ms);
}

std::vector<SerialStep> ListMcubootSteps()
{
    using enum AttemptResult;
    auto const is_first = [](JournalEntry const& entry) { return entry.address == 0U; };
    return {
        {"image-state", "image state", kNoUnit, ToRealTime(mcuboot::kQueryTimeout)},
        {"read-otp", "OTP read", kRefused, ToRealTime(mcuboot::kQueryTimeout)},
        {"upload",
         "upload, first chunk",
         kFailed,
         ToRealTime(mcuboot::kFirstChunkTimeout),
         {},
         is_first},
        {"upload", "upload, later chunks", kFailed, ToRealTime(mcuboot::kChunkTimeout)},
        {"reset", "restart", kDone, 0ms},
    };
}

QByteArray WithTrailer(QByteArray image)
{
    constexpr qsizetype kReplaced = 4;
    image.chop(kReplaced);
    image.append(char{stm32_updater::kMcuId});
    image.append(QByteArray(kReplaced - 1, '\0'));
    return image;
}

}  // namespace

SerialTransport const& GetUartTransport()
{
    static auto const image = PatternImage<QByteArray>(kUartImageSize);
    static SerialTransport const transport{TargetUart,   image,           WithTrailer(image),
                                           MakeUartUnit, MakeUartBackend, ListUartSteps()};
    return transport;
}

SerialTransport const& GetMcubootTransport()
{
    static auto const image = PatternImage<QByteArray>(kMcubootImageSize);
    static SerialTransport const transport{
        TargetMcubootSerial, image, image, MakeMcubootUnit, MakeMcubootBackend, ListMcubootSteps()};
    return transport;
}

SerialStep const& SerialTransport::FindStep(JournalEntry const& entry) const
{
    auto const step = std::ranges::find_if(steps, [&](SerialStep const& row) {
        return row.command == entry.command && row.is_meant(entry);
    });
    if (step == steps.end()) {
        throw std::runtime_error("not a command of an update: " + entry.command);
    }
    return *step;
}

bool HoldsImage(SerialTransport const& transport, simulator::SerialBootloader const& unit)
{
    auto const size = static_cast<size_t>(transport.expected_flash.size());
    auto const flash = unit.Memory().Read(simulator::kFlashStart, size);
    return QByteArray(reinterpret_cast<char const*>(flash.data()), static_cast<qsizetype>(size)) ==
           transport.expected_flash;
}

bool RunsFirmware(simulator::SerialBootloader const& unit)
{
    return unit.Status().state == simulator::UnitState::kRunning;
}

}  // namespace cuts
