// The options of the program simulated_unit, which describe the unit, read from a command line.
#pragma once

#include <QStringList>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/simulated_unit.h"

namespace simulator {

struct ProgramOptions {
    SimulatedUnitOptions unit;
    unsigned units = 1;
    unsigned foreign_unit = 0;  // the number of the one with another product's ids; 0: none
    unsigned first_port = 0;
    std::string journal_path;
    std::vector<std::byte> flash;  // at its start
};

// Reads the command line. For --help, and for an option that does not exist, it prints the text and
// ends the process. Throws std::invalid_argument for a value that cannot be used.
ProgramOptions ReadProgramOptions(QStringList const& arguments);

}  // namespace simulator
