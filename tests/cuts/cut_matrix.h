// Runs a session for each kind of fault at each byte. Counts how sessions ended, and why they did
// not fail.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
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

// Counts sessions; a row has a title of one cell or more.
class EndCounts {
public:
    void Add(std::vector<std::string> const& title, SessionVerdict const& verdict);

    // A row for each title in the order in which it came first, a column for each end.
    DocumentTable MakeTable(std::vector<std::string> const& header) const;

    // A row for each explanation, in alphabetical order.
    DocumentTable MakeExplanations() const;

    size_t Sessions() const { return sessions_; }

private:
    struct Row {
        std::vector<std::string> title;
        std::array<size_t, kSessionEnds.size()> counts{};
    };

    std::vector<Row> rows_;
    std::map<std::string, size_t> explanations_;
    size_t sessions_ = 0;
};

class CutMatrix {
public:
    // Of all sessions it runs each `step`th. Every call of Run() has faults of the same names.
    explicit CutMatrix(size_t step) : step_(step) {}

    // `bytes`: how many bytes a session has, by direction. `run` runs one.
    void Run(std::string const& setup, std::vector<MatrixFault> const& faults,
             std::array<size_t, 2> bytes,
             std::function<SessionVerdict(WireFault const&)> const& run);

    EndCounts const& Counts() const { return counts_; }

    // The first sessions that did not end as they must; empty for none.
    std::string const& Problems() const { return problems_; }

private:
    size_t step_;
    size_t candidates_ = 0;
    EndCounts counts_;
    size_t problem_count_ = 0;
    std::string problems_;
};

}  // namespace cuts
