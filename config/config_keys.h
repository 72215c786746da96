// Every key of config.ini, once: its name, the form of its value, the transports that read it and
// whether it has to be there. startup_config reads by these names, bundle_check judges by these
// rows, and tests compare the vendor's document with them. No other file spells a key.
//
// To add a key, see docs/recipes.md. One that is not optional also needs a sentence in
// bundle_check/value_checks.cpp, without which the build stops.
#pragma once

#include <QString>
#include <QStringView>
#include <array>
#include <cstdint>

// The transport, chosen by the key "interface" once and for the whole run.
enum targetInterfaceType : uint32_t {
    TargetUart = 1,
    TargetUsb = 2,
    TargetMcubootSerial = 3,
};

// The value of the key "interface" that chooses the transport. UART is also the
// choice for any other value.
constexpr QLatin1StringView GetInterfaceName(targetInterfaceType type)
{
    switch (type) {
        case TargetUsb:
            return QLatin1StringView("usb");
        case TargetMcubootSerial:
            return QLatin1StringView("mcuboot_serial");
        case TargetUart:
            break;
    }
    return QLatin1StringView("uart");
}

namespace config_keys {

enum class Form { Text, FileName, Interface, TargetType, Address, Decimal, Products, DeviceIds };

// The effect of a missing key: the updater cannot do its work, the window lacks a text, or none,
// because there is a default.
enum class Need { Required, Expected, Optional };

enum Transports : unsigned {
    kUart = 1U << TargetUart,
    kUsb = 1U << TargetUsb,
    kMcuboot = 1U << TargetMcubootSerial,
    kStm32 = kUart | kUsb,
    kEvery = kUart | kUsb | kMcuboot,
};

struct Key {
    QLatin1StringView name;
    Form form;
    Transports transports;  // where the program reads it
    Need need;
    // Needed only for the check of the unit's model, which service firmware skips.
    bool for_model_check = false;

    constexpr bool IsReadOver(targetInterfaceType type) const
    {
        return (transports & (1U << type)) != 0;
    }
};

using namespace Qt::StringLiterals;

inline constexpr Key kInterface{"interface"_L1, Form::Interface, kEvery, Need::Optional};
inline constexpr Key kFirmwareFilename{"firmware_filename"_L1, Form::FileName, kEvery,
                                       Need::Required};
inline constexpr Key kProgrammingAddress{"programming_address"_L1, Form::Address, kStm32,
                                         Need::Required};
inline constexpr Key kStartAddress{"start_address"_L1, Form::Address, kUart, Need::Required};
inline constexpr Key kBootModeAddress{"boot_mode_address"_L1, Form::Address, kUart, Need::Required};
inline constexpr Key kOtpAddress{"otp_address"_L1, Form::Address, kStm32, Need::Required, true};
inline constexpr Key kOtpSize{"otp_size"_L1, Form::Decimal, kStm32, Need::Required, true};
inline constexpr Key kMcubootBaud{"mcuboot_baud"_L1, Form::Decimal, kMcuboot, Need::Optional};
inline constexpr Key kProductList{"product_list"_L1, Form::Products, kEvery, Need::Required};
inline constexpr Key kDeviceIdList{"device_id_list"_L1, Form::DeviceIds, kEvery, Need::Required,
                                   true};
inline constexpr Key kFwTargetType{"fw_target_type"_L1, Form::TargetType, kEvery, Need::Expected};
inline constexpr Key kWindowTitle{"window_title"_L1, Form::Text, kEvery, Need::Optional};
inline constexpr Key kProductText{"product_text"_L1, Form::Text, kEvery, Need::Expected};
inline constexpr Key kFwVersion{"fw_version"_L1, Form::Text, kEvery, Need::Expected};
inline constexpr Key kInstructionsText{"instructions_text"_L1, Form::Text, kEvery, Need::Expected};

inline constexpr std::array<Key const*, 15> kAll{
    &kInterface,    &kFirmwareFilename, &kProgrammingAddress, &kStartAddress, &kBootModeAddress,
    &kOtpAddress,   &kOtpSize,          &kMcubootBaud,        &kProductList,  &kDeviceIdList,
    &kFwTargetType, &kWindowTitle,      &kProductText,        &kFwVersion,    &kInstructionsText};

// Null when the program knows no such key. Keys are case-sensitive.
constexpr Key const* Find(QStringView name)
{
    for (auto const* key : kAll) {
        if (name == key->name) {
            return key;
        }
    }
    return nullptr;
}

}  // namespace config_keys
