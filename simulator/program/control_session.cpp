#include "simulator/program/control_session.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <exception>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace simulator {
namespace {

constexpr unsigned kMostUnits = 16;

uint32_t NumberOf(std::string const& text)
{
    auto const number = ParseNumber(text);
    if (!number) {
        throw std::invalid_argument("not a number: " + text);
    }
    return *number;
}

bool SwitchOf(std::string const& text)
{
    if (text != "on" && text != "off") {
        throw std::invalid_argument("neither on nor off: " + text);
    }
    return text == "on";
}

std::string MarkerToText(std::vector<std::byte> const& marker)
{
    auto const is_text = [](std::byte b) { return b > std::byte{0x20} && b < std::byte{0x7F}; };
    if (marker.empty()) {
        return "none";
    }
    std::string text;
    if (std::ranges::all_of(marker, is_text)) {
        std::ranges::transform(marker, std::back_inserter(text),
                               [](std::byte b) { return static_cast<char>(b); });
        return text;
    }
    for (auto const byte : marker) {
        text += fmt::format("{:02x}", std::to_integer<unsigned>(byte));
    }
    return "0x" + text;
}

}  // namespace

std::optional<uint32_t> ParseNumber(std::string_view text)
{
    bool const is_hex = text.starts_with("0x") || text.starts_with("0X");
    auto const digits = text.substr(is_hex ? 2 : 0);
    uint32_t number = 0;
    auto const* const end = digits.data() + digits.size();
    auto const [rest, error] = std::from_chars(digits.data(), end, number, is_hex ? 16 : 10);
    return error == std::errc{} && rest == end ? std::optional(number) : std::nullopt;
}

std::string ToText(UnitStatus const& status)
{
    return fmt::format(
        "state={} synchronised={} plugged={} port={} pty={} jump={} marker={} connects={} "
        "erased={} writes={} over-unerased={} fault-strikes={} image-size={} stored={}",
        status.state == UnitState::kRunning ? "running" : "bootloader",
        status.state == UnitState::kSynchronised ? "yes" : "no", status.plugged ? "yes" : "no",
        status.device_path, status.pty_path.empty() ? "none" : status.pty_path,
        status.jump_address ? fmt::format("0x{:08x}", *status.jump_address) : "none",
        MarkerToText(status.marker), status.connects, status.erased_pages, status.writes,
        status.programmed_over_unerased, status.fault_strikes,
        status.image_size ? fmt::format("{}", *status.image_size) : "none", status.stored);
}

ControlSession::ControlSession(MakeUnit make_unit) : make_unit_(std::move(make_unit)) {}

std::span<ControlSession::Command const> ControlSession::Commands()
{
    static constexpr std::array kCommands{
        Command{"unit", 1, 1, &ControlSession::Select},
        Command{"plug", 0, 2, &ControlSession::Plug},
        Command{"unplug", 0, 1, &ControlSession::Unplug},
        Command{"fade", 0, 1, &ControlSession::Fade},
        Command{"reset", 0, 1, &ControlSession::Reset},
        Command{"fault", 1, 4, &ControlSession::SetFault},
        Command{"clear-faults", 0, 0, &ControlSession::ClearFaults},
        Command{"silent", 1, 1, &ControlSession::SetSilent},
        Command{"block", 1, 1, &ControlSession::SetBlocked},
        Command{"chmod", 1, 1, &ControlSession::SetMode},
        Command{"status", 0, 1, &ControlSession::Status},
        Command{"dump", 3, 3, &ControlSession::Dump},
        Command{"journal", 0, 1, &ControlSession::ShowJournal},
        Command{"quit", 0, 0, &ControlSession::Quit},
    };
    return kCommands;
}

std::string ControlSession::Handle(std::string_view line)
{
    std::istringstream stream{std::string(line)};
    std::vector<std::string> const words{std::istream_iterator<std::string>(stream), {}};
    if (words.empty()) {
        return {};
    }
    auto const command = std::ranges::find(Commands(), words.front(), &Command::name);
    if (command == Commands().end()) {
        return "error unknown command: " + words.front();
    }
    auto const arguments = std::span(words).subspan(1);
    if (arguments.size() < command->least_arguments || arguments.size() > command->most_arguments) {
        return "error wrong number of arguments: " + words.front();
    }
    try {
        return (this->*command->handle)(arguments);
    } catch (std::exception const& error) {
        return fmt::format("error {}", error.what());
    }
}

SimulatedUnit& ControlSession::Unit(unsigned number)
{
    if (number == 0 || number > kMostUnits) {
        throw std::out_of_range(fmt::format("units are numbered from 1 to {}", kMostUnits));
    }
    auto& unit = units_[number];
    if (!unit) {
        unit = make_unit_(number);
    }
    return *unit;
}

SimulatedUnit& ControlSession::UnitOf(Arguments arguments)
{
    return Unit(arguments.empty() ? selected_ : NumberOf(arguments.front()));
}

std::string ControlSession::Select(Arguments arguments)
{
    auto const number = NumberOf(arguments[0]);
    Unit(number);
    selected_ = number;
    return "ok";
}

std::string ControlSession::Plug(Arguments arguments)
{
    auto& unit = UnitOf(arguments);
    unit.Plug(arguments.size() > 1 ? arguments[1] : std::string());
    auto const status = unit.Status();
    return fmt::format("ok port={} pty={}", status.device_path, status.pty_path);
}

std::string ControlSession::Unplug(Arguments arguments)
{
    UnitOf(arguments).Unplug();
    return "ok";
}

std::string ControlSession::Fade(Arguments arguments)
{
    UnitOf(arguments).Fade();
    return "ok";
}

std::string ControlSession::Reset(Arguments arguments)
{
    UnitOf(arguments).Reset();
    return "ok";
}

std::string ControlSession::SetFault(Arguments arguments)
{
    auto const kind = FindFaultKind(arguments[0]);
    if (!kind) {
        throw std::invalid_argument("unknown fault: " + arguments[0]);
    }
    Fault fault{*kind};
    if (arguments.size() > 1) {
        fault.at = NumberOf(arguments[1]);
    }
    if (arguments.size() > 2) {
        fault.count = NumberOf(arguments[2]);
    }
    if (arguments.size() > 3) {
        fault.parameter = NumberOf(arguments[3]);
    }
    Unit(selected_).AddFault(fault);
    return "ok";
}

std::string ControlSession::ClearFaults(Arguments)
{
    Unit(selected_).ClearFaults();
    return "ok";
}

std::string ControlSession::SetSilent(Arguments arguments)
{
    Unit(selected_).SetSilent(SwitchOf(arguments[0]));
    return "ok";
}

std::string ControlSession::SetBlocked(Arguments arguments)
{
    Unit(selected_).SetBlocked(SwitchOf(arguments[0]));
    return "ok";
}

std::string ControlSession::SetMode(Arguments arguments)
{
    mode_t mode = 0;
    auto const& text = arguments[0];
    auto const [rest, error] = std::from_chars(text.data(), text.data() + text.size(), mode, 8);
    if (error != std::errc{} || rest != text.data() + text.size()) {
        throw std::invalid_argument("not an octal mode: " + text);
    }
    Unit(selected_).SetMode(mode);
    return "ok";
}

std::string ControlSession::Status(Arguments arguments)
{
    return ToText(UnitOf(arguments).Status());
}

std::string ControlSession::Dump(Arguments arguments)
{
    auto const bytes = Unit(selected_).ReadMemory(NumberOf(arguments[0]), NumberOf(arguments[1]));
    std::ofstream file(arguments[2], std::ios::binary);
    file.write(reinterpret_cast<char const*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + arguments[2]);
    }
    return "ok";
}

std::string ControlSession::ShowJournal(Arguments arguments)
{
    std::string text;
    for (auto const& entry : UnitOf(arguments).Journal()) {
        text += ToText(entry) + "\n";
    }
    return text + "end";
}

std::string ControlSession::Quit(Arguments)
{
    finished_ = true;
    return "ok";
}

}  // namespace simulator
