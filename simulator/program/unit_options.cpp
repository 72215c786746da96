#include "simulator/program/unit_options.h"

#include <fmt/format.h>

#include <QCommandLineParser>
#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "simulator/chips/otp_image.h"
#include "simulator/program/control_session.h"
#include "simulator/program/replay_file.h"

namespace simulator {
namespace {

// One option's value. Every error names the option.
class Value {
public:
    Value(std::string option, std::string text) : option_(std::move(option)), text_(std::move(text))
    {}

    std::string const& Text() const { return text_; }

    uint32_t Number() const { return InRange(ParseNumber(text_), 0xFFFFFFFF); }
    uint8_t Byte() const { return static_cast<uint8_t>(InRange(ParseNumber(text_), 0xFF)); }
    uint16_t Hex() const
    {
        auto const number = ParseNumber(text_.starts_with("0x") ? text_ : "0x" + text_);
        return static_cast<uint16_t>(InRange(number, 0xFFFF));
    }

    template <typename Choice>
    Choice OneOf(std::initializer_list<std::pair<char const*, Choice>> choices) const
    {
        for (auto const& [text, choice] : choices) {
            if (text_ == text) {
                return choice;
            }
        }
        throw Error();
    }

    std::invalid_argument Error() const
    {
        return std::invalid_argument(fmt::format("--{}: not usable: {}", option_, text_));
    }

private:
    uint32_t InRange(std::optional<uint32_t> number, uint32_t most) const
    {
        return number && *number <= most ? *number : throw Error();
    }

    std::string option_;
    std::string text_;
};

enum class Protocol { kStm32, kMcuboot, kDfu };

// The values that the options set, for every bootloader; --protocol chooses which one is used.
struct Settings {
    ProgramOptions program;
    Protocol protocol = Protocol::kStm32;
    Chip chip = kChips.front();
    bool has_real_times = false;
    std::optional<uint32_t> otp_address;
    std::optional<uint32_t> otp_size;
    std::optional<uint8_t> model_id = 1;
    bool model_is_empty = false;
    size_t model_id_slot = 0;
    std::optional<std::vector<std::byte>> otp;  // instead of one made from the model ID
    Stm32BootloaderOptions stm32;
    McubootRecoveryOptions mcuboot;
    std::optional<ReplayedUnitOptions> replay;
    uint32_t replay_speed = 1;
};

struct Option {
    char const* name;
    char const* value_name;  // null: the option takes no value
    char const* text;
    void (*apply)(Settings& settings, Value const& value);  // when it is given
};

void SetChip(Settings& settings, Value const& value)
{
    auto const chip = FindChip(value.Hex());
    settings.chip = chip ? *chip : throw value.Error();
}

void SetModelId(Settings& settings, Value const& value)
{
    settings.model_is_empty = value.Text() == "empty";
    settings.model_id.reset();
    if (!settings.model_is_empty && value.Text() != "none") {
        settings.model_id = value.Byte();
    }
}

std::vector<std::byte> ReadBytes(Value const& path)
{
    std::ifstream file(path.Text(), std::ios::binary);
    std::vector<char> const chars{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw path.Error();
    }
    std::vector<std::byte> bytes;
    std::ranges::transform(chars, std::back_inserter(bytes),
                           [](char c) { return static_cast<std::byte>(c); });
    return bytes;
}

// In the order of --help. An option that is not given changes nothing: the defaults are those of
// the structures that the options set.
constexpr std::array kOptions{
    Option{"protocol", "name",
           "Bootloader: stm32 (system bootloader; the default), mcuboot (serial recovery) or dfu "
           "(system bootloader on USB).",
           [](Settings& s, Value const& v) {
               s.protocol = v.OneOf<Protocol>({{"stm32", Protocol::kStm32},
                                               {"mcuboot", Protocol::kMcuboot},
                                               {"dfu", Protocol::kDfu}});
           }},
    Option{"product-id", "id", "Chip, by the hexadecimal ID that its bootloader answers.", SetChip},
    Option{"vid", "id", "USB vendor ID, hexadecimal; the default is the bootloader's usual one.",
           [](Settings& s, Value const& v) {
               s.program.unit.port.vendor_id = s.program.unit.usb_device.vendor_id = v.Hex();
           }},
    Option{"pid", "id", "USB product ID, likewise.",
           [](Settings& s, Value const& v) {
               s.program.unit.port.product_id = s.program.unit.usb_device.product_id = v.Hex();
           }},
    Option{"model-id", "number", "Model ID in the OTP area (1), none, or (mcuboot) empty.",
           SetModelId},
    Option{"baud", "number", "Pace of the line in bits a second; 0, the default, takes no time.",
           [](Settings& s, Value const& v) { s.program.unit.baud = v.Number(); }},
    Option{"units", "number", "Units plugged in at the start (1).",
           [](Settings& s, Value const& v) { s.program.units = v.Number(); }},
    Option{"first-port", "N", "Unit K is /dev/ttyUSB(N + K - 1).",
           [](Settings& s, Value const& v) { s.program.first_port = v.Number(); }},
    Option{"journal", "file", "Writes the commands received to this file (unit K > 1: FILE.K).",
           [](Settings& s, Value const& v) { s.program.journal_path = v.Text(); }},
    Option{"flash-in", "file", "What is in the flash at the start.",
           [](Settings& s, Value const& v) { s.program.flash = ReadBytes(v); }},
    Option{"otp", "file",
           "What is at the start of the OTP area, as make_otp writes it, instead of a model ID.",
           [](Settings& s, Value const& v) { s.otp = ReadBytes(v); }},
    Option{"real-times", nullptr, "Erasing and programming take their time.",
           [](Settings& s, Value const&) { s.has_real_times = true; }},
    Option{"model-id-slot", "number", "stm32, dfu: OTP record that holds the model ID (0).",
           [](Settings& s, Value const& v) { s.model_id_slot = v.Number(); }},
    Option{"otp-address", "address", "stm32, dfu: start of the OTP area, if not the chip's own.",
           [](Settings& s, Value const& v) { s.otp_address = v.Number(); }},
    Option{"otp-size", "number", "stm32, dfu: bytes of the OTP area, if not the chip's own.",
           [](Settings& s, Value const& v) { s.otp_size = v.Number(); }},
    Option{"incomplete-units", "habit",
           "stm32, dfu: what becomes of data that do not fill their last double word (STM32U5: "
           "quad word): lost (the default of the STM32G4) or filled (with FF; of the STM32U5).",
           [](Settings& s, Value const& v) {
               s.chip.write_habits.fills_last_unit =
                   v.OneOf<bool>({{"lost", false}, {"filled", true}});
           }},
    Option{"flash-errors", "habit",
           "stm32, dfu: a write that flash does not take is acknowledged and lost (ignored, the "
           "default) or refused (reported).",
           [](Settings& s, Value const& v) {
               s.chip.write_habits.reports_errors =
                   v.OneOf<bool>({{"ignored", false}, {"reported", true}});
           }},
    Option{"self-powered", nullptr,
           "stm32, mcuboot: plugging the unit in does not reset it, so its bootloader stays where "
           "it was.",
           [](Settings& s, Value const&) { s.program.unit.self_powered = true; }},
    Option{"erase-commands", "set",
           "stm32: what it offers: legacy, extended (the default), both or none.",
           [](Settings& s, Value const& v) {
               s.stm32.commands =
                   ListCommands(v.OneOf<EraseCommands>({{"legacy", EraseCommands::kLegacy},
                                                        {"extended", EraseCommands::kExtended},
                                                        {"both", EraseCommands::kBoth},
                                                        {"none", EraseCommands::kNone}}));
           }},
    Option{"protocol-version", "number", "stm32: version that Get answers (0x31).",
           [](Settings& s, Value const& v) { s.stm32.protocol_version = v.Byte(); }},
    Option{"ack", "hex", "stm32: first byte of the ACK/NACK pair: 79 (79/1F) or 75 (75/3F).",
           [](Settings& s, Value const& v) {
               s.stm32.ack_pair =
                   v.OneOf<AckPair>({{"79", kStandardAckPair}, {"75", kAlternativeAckPair}});
           }},
    Option{"boot-mode-address", "address", "stm32: where the boot-mode marker is looked for.",
           [](Settings& s, Value const& v) { s.stm32.boot_mode_address = v.Number(); }},
    Option{"refuse-ff-ff-erase", nullptr, "stm32: FF FF to Erase is a wrong checksum.",
           [](Settings& s, Value const&) { s.stm32.accept_ff_ff_erase = false; }},
    Option{"ignore-stray-bytes", nullptr,
           "stm32: bytes before 7F are ignored; by default they spoil the measurement of the speed "
           "until a reset.",
           [](Settings& s, Value const&) { s.stm32.stray_bytes_spoil_sync = false; }},
    Option{"go-checks-stack", nullptr,
           "stm32: Go is refused when the stack pointer at its address is not in RAM.",
           [](Settings& s, Value const&) { s.stm32.go_checks_stack = true; }},
    Option{"line-buffer", "number", "mcuboot: longest line that it takes, in bytes (2048).",
           [](Settings& s, Value const& v) { s.mcuboot.line_buffer = v.Number(); }},
    Option{"answer-line", "number",
           "mcuboot: characters of base64 in a line of an answer; 0, the default: one line.",
           [](Settings& s, Value const& v) { s.mcuboot.answer_line = v.Number(); }},
    Option{"definite-maps", nullptr, "mcuboot: answers begin with the size of their map.",
           [](Settings& s, Value const&) { s.mcuboot.definite_maps = true; }},
    Option{"talks", nullptr,
           "mcuboot: prints a banner when it is reset or plugged in, and the application's console "
           "once that runs.",
           [](Settings& s, Value const&) { s.mcuboot.talks = true; }},
    Option{"log-lines", nullptr, "mcuboot: prints a line of its log at each request.",
           [](Settings& s, Value const&) { s.mcuboot.log_lines = true; }},
    Option{"line-pause", "ms", "mcuboot: pauses between two lines that it sends; 0, the default.",
           [](Settings& s, Value const& v) {
               s.mcuboot.line_pause = std::chrono::milliseconds(v.Number());
           }},
    Option{"replay", "file",
           "Answers as the unit did whose session was recorded in this file, over a serial line, "
           "and falls silent at the first byte that differs; instead of --protocol.",
           [](Settings& s, Value const& v) {
               s.replay = ReadReplay(QString::fromStdString(v.Text()));
           }},
    Option{"replay-speed", "number",
           "Recorded delays are divided by it; 0: there are none; the default is 1.",
           [](Settings& s, Value const& v) { s.replay_speed = v.Number(); }},
    Option{"foreign-unit", "number",
           "dfu: the unit of this number has another product's ids (1209:0002).",
           [](Settings& s, Value const& v) { s.program.foreign_unit = v.Number(); }},
};

constexpr char const* kDescription =
    "A simulated unit: an STM32 in one of its bootloaders, on a simulated USB port.\n"
    "Commands are read from standard input, one a line; its end ends the program.\n"
    "Commands: plug [K [NAME]], unplug [K], fade [K], reset [K], status [K], journal [K],\n"
    "  unit K, fault KIND [AT [COUNT [PARAMETER]]], clear-faults, silent on|off, block on|off,\n"
    "  chmod MODE, dump ADDRESS SIZE FILE, quit";

std::vector<std::byte> MakeOtp(Settings const& settings)
{
    if (settings.otp) {
        return settings.otp->size() <= settings.chip.otp_size
                   ? *settings.otp
                   : throw std::invalid_argument("--otp: longer than the chip's OTP area");
    }
    OtpImage otp(settings.chip.otp_size);
    if (settings.model_id) {
        otp.SetModelId(settings.model_id_slot, *settings.model_id);
    }
    return otp.Bytes();
}

ProgramOptions MakeProgramOptions(Settings settings)
{
    auto& unit = settings.program.unit;
    if (settings.replay) {
        settings.replay->speed = settings.replay_speed;
        unit.bootloader = *settings.replay;
        return std::move(settings.program);
    }
    settings.chip.otp_address = settings.otp_address.value_or(settings.chip.otp_address);
    settings.chip.otp_size = settings.otp_size.value_or(settings.chip.otp_size);
    auto const times = settings.has_real_times ? settings.chip.real_times : ChipTimes{};
    switch (settings.protocol) {
        case Protocol::kStm32:
            settings.stm32.chip = settings.chip;
            settings.stm32.otp = MakeOtp(settings);
            settings.stm32.times = times;
            unit.bootloader = settings.stm32;
            break;
        case Protocol::kMcuboot:
            settings.mcuboot.chip = settings.chip;
            settings.mcuboot.times = times;
            if (settings.otp) {
                settings.mcuboot.otp = ReadOtpRecords(*settings.otp);
            } else if (settings.model_is_empty) {
                settings.mcuboot.otp[kModelIdKey] = {};
            } else if (settings.model_id) {
                settings.mcuboot.otp[kModelIdKey] = {std::byte{*settings.model_id}};
            }
            unit.bootloader = settings.mcuboot;
            unit.bits_per_byte = kBitsPerByte8N1;
            break;
        case Protocol::kDfu:
            unit.bootloader = DfuseBootloaderOptions{settings.chip, MakeOtp(settings), times};
            break;
    }
    return std::move(settings.program);
}

}  // namespace

ProgramOptions ReadProgramOptions(QStringList const& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(kDescription));
    parser.addHelpOption();
    for (auto const& option : kOptions) {
        parser.addOption({QString::fromLatin1(option.name), QString::fromLatin1(option.text),
                          QString::fromLatin1(option.value_name)});
    }
    parser.process(arguments);
    Settings settings;
    for (auto const& option : kOptions) {
        auto const name = QString::fromLatin1(option.name);
        if (parser.isSet(name)) {
            // Qt warns when it is asked for the value of an option that takes none.
            auto const value = option.value_name != nullptr ? parser.value(name) : QString();
            option.apply(settings, {option.name, value.toStdString()});
        }
    }
    return MakeProgramOptions(std::move(settings));
}

}  // namespace simulator
