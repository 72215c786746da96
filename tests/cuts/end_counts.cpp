#include "tests/cuts/end_counts.h"

#include <algorithm>
#include <numeric>

namespace cuts {

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

testing::AssertionResult EndCounts::AreInDocument(std::string const& name) const
{
    auto cells = header_;
    cells.emplace_back("sessions");
    cells.insert(cells.end(), kSessionEnds.begin(), kSessionEnds.end());
    DocumentTable table{cells};
    for (auto const& [title, counts] : rows_) {
        cells = title;
        cells.push_back(std::to_string(std::accumulate(counts.begin(), counts.end(), size_t{0})));
        for (auto const count : counts) {
            cells.push_back(std::to_string(count));
        }
        table.push_back(cells);
    }
    DocumentTable explanations{{"Why the session did not fail", "sessions"}};
    for (auto const& [explanation, count] : explanations_) {
        explanations.push_back({explanation, std::to_string(count)});
    }
    auto const result = IsInDocument(table, name);
    return result ? IsInDocument(explanations, name + "-explained") : result;
}

}  // namespace cuts
