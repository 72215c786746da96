#include "tests/cuts/cut_matrix.h"

#include <algorithm>
#include <numeric>

namespace cuts {
namespace {

constexpr size_t kMostProblems = 20;

}  // namespace

void EndCounts::Add(std::vector<std::string> const& title, SessionVerdict const& verdict)
{
    auto row = std::ranges::find(rows_, title, &Row::title);
    if (row == rows_.end()) {
        row = rows_.insert(row, Row{title});
    }
    ++row->counts.at(static_cast<size_t>(verdict.end));
    ++sessions_;
    if (!verdict.explanation.empty()) {
        ++explanations_[verdict.explanation];
    }
}

DocumentTable EndCounts::MakeTable(std::vector<std::string> const& header) const
{
    auto cells = header;
    cells.emplace_back("sessions");
    cells.insert(cells.end(), kSessionEnds.begin(), kSessionEnds.end());
    DocumentTable table(cells);
    for (auto const& row : rows_) {
        cells = row.title;
        cells.push_back(
            std::to_string(std::accumulate(row.counts.begin(), row.counts.end(), size_t{0})));
        for (auto const count : row.counts) {
            cells.push_back(std::to_string(count));
        }
        table.Add(cells);
    }
    return table;
}

DocumentTable EndCounts::MakeExplanations() const
{
    DocumentTable table({"Why the session did not fail", "sessions"});
    for (auto const& [explanation, count] : explanations_) {
        table.Add({explanation, std::to_string(count)});
    }
    return table;
}

void CutMatrix::Run(std::string const& setup, std::vector<MatrixFault> const& faults,
                    std::array<size_t, 2> bytes,
                    std::function<SessionVerdict(WireFault const&)> const& run)
{
    for (auto const& fault : faults) {
        for (auto const direction : {Direction::kToUnit, Direction::kToHost}) {
            for (size_t position = 0; position < bytes.at(static_cast<size_t>(direction));
                 ++position) {
                if (candidates_++ % step_ != 0) {
                    continue;
                }
                WireFault const one{fault.kind, direction, position, fault.value(position)};
                auto const verdict = run(one);
                counts_.Add({fault.name,
                             direction == Direction::kToUnit ? "to the unit" : "to the program"},
                            verdict);
                if (!verdict.problem.empty() && ++problem_count_ <= kMostProblems) {
                    problems_ += setup + ", " + ToText(one) + ": " + ToText(verdict) + "\n";
                }
            }
        }
    }
}

}  // namespace cuts
