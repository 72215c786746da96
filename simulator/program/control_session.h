// The commands of the program simulated_unit: one line in, its answer out. README.md lists them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "simulator/simulated_unit.h"

namespace simulator {

// The number in "0x1F" or "31"; none if the whole text is not an unsigned number of 32 bits.
std::optional<uint32_t> ParseNumber(std::string_view text);

// A status as one line: "state=bootloader plugged=yes port=/dev/ttyUSB0 ...".
std::string ToText(UnitStatus const& status);

// Owns the units, numbered from 1. Not thread-safe.
class ControlSession {
public:
    using MakeUnit = std::function<std::unique_ptr<SimulatedUnit>(unsigned number)>;

    // `make_unit` makes a unit, not plugged in, when its number is used for the first time.
    explicit ControlSession(MakeUnit make_unit);

    // Returns the answer to one command: "ok", "ok VALUES", "error TEXT" or what was asked for.
    // Lines are separated by \n; the last one has none. An empty line has an empty answer.
    std::string Handle(std::string_view line);

    // True once "quit" has been handled.
    bool Finished() const { return finished_; }

    SimulatedUnit& Unit(unsigned number);

private:
    using Arguments = std::span<std::string const>;

    struct Command {
        std::string_view name;
        size_t least_arguments;
        size_t most_arguments;
        std::string (ControlSession::*handle)(Arguments);
    };
    static std::span<Command const> Commands();

    std::string Select(Arguments arguments);
    std::string Plug(Arguments arguments);
    std::string Unplug(Arguments arguments);
    std::string Fade(Arguments arguments);
    std::string Reset(Arguments arguments);
    std::string SetFault(Arguments arguments);
    std::string ClearFaults(Arguments arguments);
    std::string SetSilent(Arguments arguments);
    std::string SetBlocked(Arguments arguments);
    std::string SetMode(Arguments arguments);
    std::string Status(Arguments arguments);
    std::string Dump(Arguments arguments);
    std::string ShowJournal(Arguments arguments);
    std::string Quit(Arguments arguments);

    // The unit that the first of `arguments` names, or the selected one.
    SimulatedUnit& UnitOf(Arguments arguments);

    MakeUnit make_unit_;
    std::map<unsigned, std::unique_ptr<SimulatedUnit>> units_;
    unsigned selected_ = 1;
    bool finished_ = false;
};

}  // namespace simulator
