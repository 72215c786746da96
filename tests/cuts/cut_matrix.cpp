#include "tests/cuts/cut_matrix.h"

#include <algorithm>
#include <numeric>

namespace cuts {
namespace {

constexpr size_t kMostProblems = 20;

}  // namespace

CutMatrix::Row& CutMatrix::FindRow(std::string const& fault, Direction direction)
{
    auto const found = std::ranges::find_if(rows_, [&](Row const& row) {
        return row.fault == fault && row.direction == direction;
    });
    return found != rows_.end() ? *found : rows_.emplace_back(Row{fault, direction});
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
                ++sessions_;
                auto& row = FindRow(fault.name, direction);
                ++row.counts.at(static_cast<size_t>(verdict.end));
                if (!verdict.problem.empty() && ++problem_count_ <= kMostProblems) {
                    problems_ += setup + ", " + ToText(one) + ": " + verdict.problem + " (" +
                                 kSessionEnds.at(static_cast<size_t>(verdict.end)) + "; " +
                                 verdict.report + ")\n";
                }
            }
        }
    }
}

DocumentTable CutMatrix::MakeTable() const
{
    std::vector<std::string> header{"Fault", "Direction", "Sessions"};
    header.insert(header.end(), kSessionEnds.begin(), kSessionEnds.end());
    DocumentTable table(header);
    for (auto const& row : rows_) {
        std::vector<std::string> cells{
            row.fault, row.direction == Direction::kToUnit ? "to the unit" : "to the program",
            std::to_string(std::accumulate(row.counts.begin(), row.counts.end(), size_t{0}))};
        for (auto const count : row.counts) {
            cells.push_back(std::to_string(count));
        }
        table.Add(cells);
    }
    return table;
}

}  // namespace cuts
