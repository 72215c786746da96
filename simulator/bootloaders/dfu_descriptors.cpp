#include "simulator/bootloaders/dfu_descriptors.h"

#include <fmt/format.h>

#include <initializer_list>

#include "simulator/bootloaders/dfuse_bootloader.h"

namespace simulator {
namespace {

// Descriptor types.
constexpr uint8_t kDevice = 1;
constexpr uint8_t kConfiguration = 2;
constexpr uint8_t kString = 3;
constexpr uint8_t kInterface = 4;
constexpr uint8_t kDfuFunctional = 0x21;

// Class, subclass and protocol of an interface in DFU mode.
constexpr uint8_t kApplicationSpecific = 0xFE;
constexpr uint8_t kFirmwareUpgrade = 1;
constexpr uint8_t kDfuMode = 2;

// Takes downloads and uploads, and leaves the bus by itself at the end of one.
constexpr uint8_t kDfuAttributes = 0x0B;
// ST's own version: DFU 1.1 with the extensions.
constexpr uint16_t kDfuSeVersion = 0x011A;
constexpr uint16_t kDetachTimeoutMs = 255;

constexpr uint8_t kBusPowered = 0x80;
constexpr uint8_t kHundredMilliamperes = 50;
constexpr uint16_t kUsEnglish = 0x0409;

// String descriptors.
constexpr uint8_t kManufacturerText = 1;
constexpr uint8_t kProductText = 2;
constexpr uint8_t kSerialNumberText = 3;
constexpr uint8_t kFirstMemoryText = 4;

constexpr uint8_t kConfigurationHead = 9;
constexpr uint8_t kInterfaceSize = 9;
constexpr uint8_t kDfuFunctionalSize = 9;

void Append(std::vector<std::byte>& bytes, std::initializer_list<unsigned> values)
{
    for (auto const value : values) {
        bytes.push_back(static_cast<std::byte>(value));
    }
}

void Append16(std::vector<std::byte>& bytes, std::initializer_list<unsigned> values)
{
    for (auto const value : values) {
        Append(bytes, {value & 0xFF, value >> 8});
    }
}

}  // namespace

std::vector<std::string> MakeMemoryNames(Chip const& chip)
{
    return {fmt::format("@Internal Flash  /0x{:08X}/{}*{:04}Kg", kFlashStart, chip.Pages(),
                        chip.page_size / 1024),
            "@Option Bytes  /0x1FFF7800/01*048 e/0x1FFFF800/01*048 e",
            fmt::format("@OTP Memory /0x{:08X}/01*{:04} e", chip.otp_address, chip.otp_size)};
}

std::vector<std::byte> MakeDescriptors(UsbDfuIdentity const& identity)
{
    std::vector<std::byte> bytes;
    constexpr unsigned kDeviceSize = 18;
    constexpr unsigned kControlPacketSize = 64;
    Append(bytes, {kDeviceSize, kDevice, 0x00, 0x01, 0, 0, 0, kControlPacketSize});
    Append16(bytes, {identity.vendor_id, identity.product_id, 0x2200});
    Append(bytes, {kManufacturerText, kProductText, kSerialNumberText, 1});

    auto const memories = static_cast<unsigned>(identity.memories.size());
    Append(bytes, {kConfigurationHead, kConfiguration});
    Append16(bytes, {kConfigurationHead + kInterfaceSize * memories + kDfuFunctionalSize});
    Append(bytes, {1, 1, 0, kBusPowered, kHundredMilliamperes});
    for (unsigned alternate = 0; alternate < memories; ++alternate) {
        Append(bytes, {kInterfaceSize, kInterface, 0, alternate, 0, kApplicationSpecific,
                       kFirmwareUpgrade, kDfuMode, kFirstMemoryText + alternate});
    }
    Append(bytes, {kDfuFunctionalSize, kDfuFunctional, kDfuAttributes});
    Append16(bytes, {kDetachTimeoutMs, kDfuTransferSize, kDfuSeVersion});
    return bytes;
}

std::vector<std::byte> MakeStringDescriptor(UsbDfuIdentity const& identity, unsigned index)
{
    std::vector<std::string> texts{identity.manufacturer, identity.product, identity.serial_number};
    texts.insert(texts.end(), identity.memories.begin(), identity.memories.end());
    std::vector<std::byte> bytes;
    if (index == 0) {
        Append(bytes, {4, kString});
        Append16(bytes, {kUsEnglish});
    } else if (index <= texts.size()) {
        auto const& text = texts[index - 1];
        Append(bytes, {static_cast<unsigned>(2 + 2 * text.size()), kString});
        for (auto const c : text) {
            Append16(bytes, {static_cast<unsigned char>(c)});
        }
    }
    return bytes;
}

}  // namespace simulator
