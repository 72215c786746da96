// simulated_unit: a microcontroller in one of its bootloaders, behind a USB serial port or as a USB
// device that is not there, as a program: options make the unit, lines on standard input control
// it. See README.md.

#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/chips/otp_image.h"
#include "simulator/program/control_session.h"
#include "simulator/simulated_unit.h"

namespace {

using simulator::SimulatedUnitOptions;

struct ProgramOptions {
    SimulatedUnitOptions unit;
    unsigned units = 1;
    unsigned foreign_unit = 0;  // none
    unsigned first_port = 0;
    std::string journal_path;
    std::vector<std::byte> flash;
};

// Adds an option that takes a value.
struct OptionAdder {
    QCommandLineParser& parser;

    void operator()(char const* name, char const* text, char const* value, char const* preset) const
    {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(text),
                          QString::fromLatin1(value), QString::fromLatin1(preset)});
    }
};

// Those of one bootloader or another.
void DescribeBootloaderOptions(QCommandLineParser& parser)
{
    auto const add = OptionAdder{parser};
    add("model-id-slot", "stm32, dfu: OTP record that holds the model ID.", "number", "0");
    add("erase-commands", "stm32: what it offers: legacy, extended, both or none.", "set",
        "extended");
    add("protocol-version", "stm32: version that Get answers.", "number", "0x31");
    add("ack", "stm32: first byte of the ACK/NACK pair: 79 (79/1F) or 75 (75/3F).", "hex", "79");
    add("boot-mode-address", "stm32: where the boot-mode marker is looked for.", "address", "");
    add("otp-address", "stm32, dfu: start of the OTP area; the chip's own if not given.", "address",
        "");
    add("otp-size", "stm32, dfu: bytes of the OTP area; the chip's own if not given.", "number",
        "");
    parser.addOption({QStringLiteral("refuse-ff-ff-erase"),
                      QStringLiteral("stm32: FF FF to Erase is a wrong checksum.")});
    add("line-buffer", "mcuboot: longest line it takes, in bytes.", "number", "2048");
    add("answer-line", "mcuboot: characters of base64 a line of an answer; 0: one line.", "number",
        "0");
    parser.addOption({QStringLiteral("definite-maps"),
                      QStringLiteral("mcuboot: answers begin with the size of their map.")});
    add("foreign-unit", "dfu: the unit of this number has another product's ids (1209:0002).",
        "number", "0");
}

// The parser's options, each with its default, in the order of --help.
void DescribeOptions(QCommandLineParser& parser)
{
    parser.setApplicationDescription(QStringLiteral(
        "A simulated unit: an STM32 in one of its bootloaders, on a USB port that is not there.\n"
        "Commands are read from standard input, one a line; its end ends the program.\n"
        "Commands: plug [K [NAME]], unplug [K], fade [K], reset [K], status [K], journal [K],\n"
        "  unit K, fault KIND [AT [COUNT [PARAMETER]]], clear-faults, silent on|off, block "
        "on|off,\n"
        "  chmod MODE, dump ADDRESS SIZE FILE, quit"));
    parser.addHelpOption();
    auto const add = OptionAdder{parser};
    add("protocol",
        "Bootloader: stm32 (system bootloader), mcuboot (serial recovery) or dfu (system "
        "bootloader on "
        "USB).",
        "name", "stm32");
    add("product-id", "Chip, hexadecimal: 469, 479 or 482.", "id", "469");
    add("vid", "USB vendor ID, hexadecimal; if not given, that of the bootloader's usual device.",
        "id", "");
    add("pid", "USB product ID, likewise.", "id", "");
    add("model-id", "Model ID in the OTP area, none, or (mcuboot) empty.", "number", "1");
    add("baud", "Pace of the line in bits a second; 0 takes no time.", "number", "0");
    add("units", "Units plugged at the start.", "number", "1");
    add("first-port", "Unit K is /dev/ttyUSB(N + K - 1).", "N", "0");
    add("journal", "Writes the commands received to this file (unit K > 1: FILE.K).", "file", "");
    add("flash-in", "What is in the flash at the start.", "file", "");
    parser.addOption(
        {QStringLiteral("real-times"), QStringLiteral("Erasing and programming take their time.")});
    DescribeBootloaderOptions(parser);
}

// Reads the parser's values; every error is a std::invalid_argument that names the option.
class OptionReader {
public:
    explicit OptionReader(QCommandLineParser const& parser) : parser_(parser) {}

    std::string Text(char const* name) const
    {
        return parser_.value(QString::fromLatin1(name)).toStdString();
    }

    bool IsGiven(char const* name) const { return !Text(name).empty(); }

    bool IsSet(char const* name) const { return parser_.isSet(QString::fromLatin1(name)); }

    uint32_t Number(char const* name) const { return NumberIn(name, Text(name)); }

    uint16_t Hex(char const* name) const
    {
        auto const text = Text(name);
        auto const number = NumberIn(name, text.starts_with("0x") ? text : "0x" + text);
        return number <= 0xFFFF ? static_cast<uint16_t>(number) : throw Error(name);
    }

    uint8_t Byte(char const* name) const
    {
        auto const number = Number(name);
        return number <= 0xFF ? static_cast<uint8_t>(number) : throw Error(name);
    }

    template <typename Value, size_t size>
    Value OneOf(char const* name, std::array<std::pair<char const*, Value>, size> const& rows) const
    {
        for (auto const& [text, value] : rows) {
            if (Text(name) == text) {
                return value;
            }
        }
        throw Error(name);
    }

    std::invalid_argument Error(char const* name) const
    {
        return std::invalid_argument(fmt::format("--{}: not usable: {}", name, Text(name)));
    }

private:
    uint32_t NumberIn(char const* name, std::string const& text) const
    {
        auto const number = simulator::ParseNumber(text);
        return number ? *number : throw Error(name);
    }

    QCommandLineParser const& parser_;
};

std::vector<std::byte> ReadFile(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<char> const chars{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw std::invalid_argument("cannot read " + path);
    }
    std::vector<std::byte> bytes(chars.size());
    std::ranges::transform(chars, bytes.begin(), [](char c) { return static_cast<std::byte>(c); });
    return bytes;
}

simulator::Chip ReadChip(OptionReader const& reader)
{
    auto chip = simulator::FindChip(reader.Hex("product-id"));
    if (!chip) {
        throw reader.Error("product-id");
    }
    if (reader.IsGiven("otp-address")) {
        chip->otp_address = reader.Number("otp-address");
    }
    if (reader.IsGiven("otp-size")) {
        chip->otp_size = reader.Number("otp-size");
    }
    return *chip;
}

simulator::ChipTimes ReadTimes(OptionReader const& reader)
{
    return reader.IsSet("real-times") ? simulator::kRealTimes : simulator::ChipTimes{};
}

std::vector<std::byte> ReadOtp(OptionReader const& reader, simulator::Chip const& chip)
{
    simulator::OtpImage otp(chip.otp_size);
    if (reader.Text("model-id") != "none") {
        otp.SetModelId(reader.Number("model-id-slot"), reader.Byte("model-id"));
    }
    return otp.Bytes();
}

simulator::Stm32BootloaderOptions ReadBootloaderOptions(OptionReader const& reader)
{
    using simulator::EraseCommands;
    simulator::Stm32BootloaderOptions options;
    options.chip = ReadChip(reader);
    options.protocol_version = reader.Byte("protocol-version");
    options.commands = simulator::ListCommands(
        reader.OneOf("erase-commands", std::array{std::pair{"legacy", EraseCommands::kLegacy},
                                                  std::pair{"extended", EraseCommands::kExtended},
                                                  std::pair{"both", EraseCommands::kBoth},
                                                  std::pair{"none", EraseCommands::kNone}}));
    options.ack_pair =
        reader.OneOf("ack", std::array{std::pair{"79", simulator::kStandardAckPair},
                                       std::pair{"75", simulator::kAlternativeAckPair}});
    options.otp = ReadOtp(reader, options.chip);
    if (reader.IsGiven("boot-mode-address")) {
        options.boot_mode_address = reader.Number("boot-mode-address");
    }
    options.accept_ff_ff_erase = !reader.IsSet("refuse-ff-ff-erase");
    options.times = ReadTimes(reader);
    return options;
}

simulator::McubootRecoveryOptions ReadRecoveryOptions(OptionReader const& reader)
{
    simulator::McubootRecoveryOptions options;
    options.chip = ReadChip(reader);
    if (reader.Text("model-id") == "empty") {
        options.otp[simulator::kModelIdKey] = {};
    } else if (reader.Text("model-id") != "none") {
        options.otp[simulator::kModelIdKey] = {std::byte{reader.Byte("model-id")}};
    }
    options.line_buffer = reader.Number("line-buffer");
    options.answer_line = reader.Number("answer-line");
    options.definite_maps = reader.IsSet("definite-maps");
    options.times = ReadTimes(reader);
    return options;
}

simulator::DfuseBootloaderOptions ReadDfuseOptions(OptionReader const& reader)
{
    simulator::DfuseBootloaderOptions options;
    options.chip = ReadChip(reader);
    options.otp = ReadOtp(reader, options.chip);
    options.times = ReadTimes(reader);
    return options;
}

SimulatedUnitOptions ReadUnitOptions(OptionReader const& reader)
{
    enum class Protocol { kStm32, kMcuboot, kDfu };
    SimulatedUnitOptions unit;
    switch (reader.OneOf("protocol", std::array{std::pair{"stm32", Protocol::kStm32},
                                                std::pair{"mcuboot", Protocol::kMcuboot},
                                                std::pair{"dfu", Protocol::kDfu}})) {
        case Protocol::kStm32:
            unit.bootloader = ReadBootloaderOptions(reader);
            break;
        case Protocol::kMcuboot:
            unit.bootloader = ReadRecoveryOptions(reader);
            unit.bits_per_byte = simulator::kBitsPerByte8N1;
            break;
        case Protocol::kDfu:
            unit.bootloader = ReadDfuseOptions(reader);
            break;
    }
    if (reader.IsGiven("vid")) {
        unit.port.vendor_id = unit.usb_device.vendor_id = reader.Hex("vid");
    }
    if (reader.IsGiven("pid")) {
        unit.port.product_id = unit.usb_device.product_id = reader.Hex("pid");
    }
    unit.baud = reader.Number("baud");
    return unit;
}

ProgramOptions ReadOptions(QCommandLineParser const& parser)
{
    OptionReader const reader(parser);
    ProgramOptions options;
    options.unit = ReadUnitOptions(reader);
    options.foreign_unit = reader.Number("foreign-unit");
    options.units = reader.Number("units");
    options.first_port = reader.Number("first-port");
    options.journal_path = reader.Text("journal");
    if (reader.IsGiven("flash-in")) {
        options.flash = ReadFile(reader.Text("flash-in"));
    }
    return options;
}

std::unique_ptr<simulator::SimulatedUnit> MakeUnit(
    std::shared_ptr<simulator::UsbTestbed> const& testbed, ProgramOptions const& options,
    unsigned number)
{
    auto unit_options = options.unit;
    unit_options.port.name = fmt::format("ttyUSB{}", options.first_port + number - 1);
    unit_options.port.serial_number = fmt::format("{:04}", number);
    unit_options.usb_device.serial_number = unit_options.port.serial_number;
    if (number == options.foreign_unit) {
        unit_options.usb_device.vendor_id = 0x1209;
        unit_options.usb_device.product_id = 0x0002;
    }
    if (!options.journal_path.empty()) {
        auto const path =
            options.journal_path + (number == 1 ? std::string() : fmt::format(".{}", number));
        auto file = std::make_shared<std::ofstream>(path);
        unit_options.journal_sink = [file](simulator::JournalEntry const& entry) {
            *file << simulator::ToText(entry) << '\n' << std::flush;
        };
    }
    auto unit = std::make_unique<simulator::SimulatedUnit>(testbed, std::move(unit_options));
    unit->LoadMemory(simulator::kFlashStart, options.flash);
    return unit;
}

void Print(std::string const& text)
{
    fmt::print("{}\n", text);
    std::fflush(stdout);
}

void PlugUnits(simulator::ControlSession& session, unsigned units)
{
    for (unsigned number = 1; number <= units; ++number) {
        session.Unit(number).Plug();
        auto const status = session.Unit(number).Status();
        auto const suffix = number == 1 ? std::string() : fmt::format("{}", number);
        Print(fmt::format("port{}={}", suffix, status.device_path));
        if (!status.pty_path.empty()) {
            Print(fmt::format("pty{}={}", suffix, status.pty_path));
        }
    }
}

// Handles commands until "quit", the end of standard input, or a signal.
void Serve(simulator::ControlSession& session, int signals)
{
    std::string input;
    std::array<pollfd, 2> fds{pollfd{STDIN_FILENO, POLLIN, 0}, pollfd{signals, POLLIN, 0}};
    while (!session.Finished() && poll(fds.data(), fds.size(), -1) > 0 && fds[1].revents == 0) {
        std::array<char, 4096> buffer;
        auto const count = read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count <= 0) {
            return;
        }
        input.append(buffer.data(), static_cast<size_t>(count));
        for (auto end = input.find('\n'); end != std::string::npos && !session.Finished();
             end = input.find('\n')) {
            auto const answer = session.Handle(input.substr(0, end));
            input.erase(0, end + 1);
            if (!answer.empty()) {
                Print(answer);
            }
        }
    }
}

void Run(ProgramOptions const& options, int signals)
{
    auto const testbed = std::make_shared<simulator::UsbTestbed>();
    simulator::ControlSession session(
        [&](unsigned number) { return MakeUnit(testbed, options, number); });
    Print("UMOCKDEV_DIR=" + testbed->Root());
    Print("preload=libumockdev-preload.so.0");
    PlugUnits(session, options.units);
    Print("ready");
    Serve(session, signals);
}

// A descriptor that becomes readable when the program is asked to end. The signals stay blocked, so
// this comes before the first thread.
int CatchSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

}  // namespace

int main(int argc, char** argv)
{
    int const signals = CatchSignals();
    QCoreApplication const application(argc, argv);
    QCommandLineParser parser;
    DescribeOptions(parser);
    parser.process(application);
    try {
        Run(ReadOptions(parser), signals);
    } catch (std::exception const& error) {
        fmt::print(stderr, "simulated_unit: {}\n", error.what());
        return 1;
    }
    return 0;
}
