// Counts how sessions in virtual time ended, and why they did not fail, for docs/cut-matrix.md.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tests/cuts/document_table.h"
#include "tests/cuts/virtual_bench.h"

namespace cuts {

// A row has a title of one cell or more.
class EndCounts {
public:
    explicit EndCounts(std::vector<std::string> const& header) : header_(header) {}

    void Add(std::vector<std::string> const& title, SessionVerdict const& verdict);

    size_t Sessions() const { return sessions_; }

    // Whether the document has these counts in the table of that name, with a row for each title in
    // the order in which it came first and a column for each end, and the explanations in the table
    // NAME-explained.
    testing::AssertionResult AreInDocument(std::string const& name) const;

private:
    struct Row {
        std::vector<std::string> title;
        std::array<size_t, kSessionEnds.size()> counts{};
    };

    std::vector<std::string> header_;
    std::vector<Row> rows_;
    std::map<std::string, size_t> explanations_;
    size_t sessions_ = 0;
};

}  // namespace cuts
