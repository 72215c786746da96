// Runs a session for each kind of fault at each byte, and counts how they ended.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "tests/cuts/document_table.h"
#include "tests/cuts/session_end.h"
#include "tests/cuts/virtual_wire.h"

namespace cuts {

// A fault of a matrix: what it is called, and what it is at one byte.
struct MatrixFault {
    std::string name;
    WireFaultKind kind;
    std::function<std::byte(size_t position)> value = [](size_t) { return std::byte{0}; };
};

class CutMatrix {
public:
    // Of all sessions it runs each `step`th. Every call of Run() has faults of the same names.
    explicit CutMatrix(size_t step) : step_(step) {}

    // `bytes`: how many bytes a session has, by direction. `run` runs one.
    void Run(std::string const& setup, std::vector<MatrixFault> const& faults,
             std::array<size_t, 2> bytes,
             std::function<SessionVerdict(WireFault const&)> const& run);

    size_t Sessions() const { return sessions_; }

    // A row for each fault and direction, a column for each end.
    DocumentTable MakeTable() const;

    // The first sessions that did not end as they must; empty for none.
    std::string const& Problems() const { return problems_; }

private:
    struct Row {
        std::string fault;
        Direction direction;
        std::array<size_t, kSessionEnds.size()> counts{};
    };

    Row& FindRow(std::string const& fault, Direction direction);

    size_t step_;
    size_t candidates_ = 0;
    size_t sessions_ = 0;
    std::vector<Row> rows_;
    size_t problem_count_ = 0;
    std::string problems_;
};

}  // namespace cuts
