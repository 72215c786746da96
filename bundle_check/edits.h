// How far apart two words are. Pure.
#pragma once

#include <QString>
#include <QStringView>
#include <algorithm>
#include <utility>
#include <vector>

namespace bundle_check {

// Words that differ by no more are probably the same, one of them with a typing error.
inline constexpr int kMostEdits = 2;

// The number of letters to insert, remove or change to turn one word into the other.
inline int CountEdits(QStringView from, QStringView to)
{
    std::vector<int> costs(static_cast<size_t>(to.size()) + 1);
    for (size_t j = 0; j < costs.size(); ++j) {
        costs[j] = static_cast<int>(j);
    }
    for (qsizetype i = 0; i < from.size(); ++i) {
        int diagonal = std::exchange(costs[0], static_cast<int>(i) + 1);
        for (size_t j = 1; j < costs.size(); ++j) {
            int const change = diagonal + (from[i] == to[static_cast<qsizetype>(j) - 1] ? 0 : 1);
            diagonal = costs[j];
            costs[j] = std::min({costs[j] + 1, costs[j - 1] + 1, change});
        }
    }
    return costs.back();
}

}  // namespace bundle_check
