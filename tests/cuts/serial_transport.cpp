#include "tests/cuts/serial_transport.h"

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

SerialStep GetUartStep(JournalEntry const& entry)
{
    constexpr std::chrono::milliseconds kAnswer = stm32_updater::kAnswerTimeout;
    using enum AttemptResult;
    auto const& command = entry.command;
    if (command == "sync") {
        return {"synchronisation", kNoUnit, kAnswer, "Init con"};
    }
    if (command == "get") {
        return {"Get", kNoUnit, kAnswer, "Get"};
    }
    if (command == "get-id") {
        return {"Get ID", kNoUnit, kAnswer, "Get ID"};
    }
    if (command == "read") {
        return {"Read Memory (OTP area)", kRefused, kAnswer, "Read"};
    }
    if (command == "get-version") {
        return {"Get Version", kFailed, kAnswer, "Get Ver Rops"};
    }
    if (command == "extended-erase") {
        return {"Extended Erase", kFailed, stm32_updater::kExtendedEraseTimeout, "Erase Ext"};
    }
    if (command == "write" && entry.address == kBootMode) {
        return {"Write Memory (boot-mode marker)", kDone, kAnswer, "Write"};
    }
    if (command == "write" && entry.size == stm32_updater::kTrailerSize) {
        return {"Write Memory (trailer)", kFailed, kAnswer, "Write"};
    }
    if (command == "write") {
        return {"Write Memory (image)", kFailed, kAnswer, "Write"};
    }
    if (command == "go") {
        return {"Go", kDone, kAnswer, "Write"};
    }
    throw std::runtime_error("not a command of an update: " + command);
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

SerialStep GetMcubootStep(JournalEntry const& entry)
{
    using enum AttemptResult;
    auto const& command = entry.command;
    if (command == "image-state") {
        return {"image state", kNoUnit, ToRealTime(mcuboot::kQueryTimeout), {}};
    }
    if (command == "read-otp") {
        return {"OTP read", kRefused, ToRealTime(mcuboot::kQueryTimeout), {}};
    }
    if (command == "upload" && entry.address == 0U) {
        return {"upload, first chunk", kFailed, ToRealTime(mcuboot::kFirstChunkTimeout), {}};
    }
    if (command == "upload") {
        return {"upload, later chunks", kFailed, ToRealTime(mcuboot::kChunkTimeout), {}};
    }
    if (command == "reset") {
        return {"restart", kDone, 0ms, {}};
    }
    throw std::runtime_error("not a request of an update: " + command);
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
                                           MakeUartUnit, MakeUartBackend, GetUartStep};
    return transport;
}

SerialTransport const& GetMcubootTransport()
{
    static auto const image = PatternImage<QByteArray>(kMcubootImageSize);
    static SerialTransport const transport{
        TargetMcubootSerial, image, image, MakeMcubootUnit, MakeMcubootBackend, GetMcubootStep};
    return transport;
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
