// What is known of each key of config.ini before its value is looked at. A test holds this table
// against the keys that the program's reading code names.
#pragma once

#include <QString>
#include <array>

#include "config/startup_config.h"

namespace bundle_check {

enum class Form { Text, FileName, Interface, TargetType, Address, Decimal, Products, DeviceIds };

// What it means when a key is missing: the updater cannot do its work, the window lacks a text, or
// a default stands in.
enum class Need { Required, Expected, Optional };

enum Transports : unsigned {
    kUart = 1U << TargetUart,
    kUsb = 1U << TargetUsb,
    kMcuboot = 1U << TargetMcubootSerial,
    kStm32Transports = kUart | kUsb,
    kEveryTransport = kUart | kUsb | kMcuboot,
};

struct KeyRule {
    char const* name;
    Form form;
    unsigned transports;  // of Transports: where the program reads it
    Need need;
    // Serves only the check of the unit's model, which a service firmware leaves out.
    bool for_model_check;
    char const* when_missing;
};

inline constexpr std::array<KeyRule, 15> kKeyRules{{
    {"firmware_filename", Form::FileName, kEveryTransport, Need::Required, false,
     "there is no firmware to write"},
    {"interface", Form::Interface, kEveryTransport, Need::Optional, false, "the transport is UART"},
    {"start_address", Form::Address, kUart, Need::Required, false,
     "the unit is told to start at address 0"},
    {"programming_address", Form::Address, kStm32Transports, Need::Required, false,
     "the firmware is written to address 0"},
    {"otp_address", Form::Address, kStm32Transports, Need::Required, true,
     "the model identifier is looked for at address 0"},
    {"otp_size", Form::Decimal, kStm32Transports, Need::Required, true,
     "nothing is read where the model identifier lies, and no unit is accepted"},
    {"boot_mode_address", Form::Address, kUart, Need::Required, false,
     "the boot-mode marker is written to address 0"},
    {"fw_target_type", Form::TargetType, kEveryTransport, Need::Expected, false,
     "the firmware counts as neither a customer's nor a service one"},
    {"mcuboot_baud", Form::Decimal, kMcuboot, Need::Optional, false,
     "the line runs at 921600 bits a second"},
    {"product_list", Form::Products, kEveryTransport, Need::Required, false,
     "no unit is ever found"},
    {"device_id_list", Form::DeviceIds, kEveryTransport, Need::Required, true,
     "no unit is accepted"},
    {"window_title", Form::Text, kEveryTransport, Need::Optional, false,
     "the title is \"Kelvane firmware updater\""},
    {"instructions_text", Form::Text, kEveryTransport, Need::Expected, false,
     "the window shows no instructions"},
    {"product_text", Form::Text, kEveryTransport, Need::Expected, false,
     "the window shows no product name"},
    {"fw_version", Form::Text, kEveryTransport, Need::Expected, false,
     "the window shows no version number"},
}};

constexpr KeyRule const* FindKeyRule(QStringView name)
{
    for (auto const& rule : kKeyRules) {
        if (name == QLatin1StringView(rule.name)) {
            return &rule;
        }
    }
    return nullptr;
}

}  // namespace bundle_check
