#include "app/repeated_lines.h"

#include <algorithm>
#include <utility>

QStringList RepeatedLines::Take(QString const& line)
{
    auto const expected = group_ > 0 && line == recent_[recent_.size() - group_];
    QStringList lines;
    if (group_ > 0 && !expected) {
        if (auto const count = Finish(); !count.isEmpty()) {
            lines.append(count);
        }
        recent_.clear();
    }
    recent_.append(line);
    if (recent_.size() > 2 * kLongestGroup) {
        recent_.removeFirst();
    }
    if (expected) {
        ++held_back_;
        return {};
    }
    for (qsizetype group = 1; group <= kLongestGroup && group_ == 0; ++group) {
        group_ = Repeats(group) ? group : 0;
    }
    lines.append(line);
    return lines;
}

QString RepeatedLines::Finish()
{
    auto const held_back = std::exchange(held_back_, 0);
    auto const group = std::exchange(group_, 0);
    if (held_back == 0) {
        return {};
    }
    auto const ending = held_back == 1 ? QString() : QStringLiteral("s");
    return group == 1
               ? QStringLiteral("(the line above came %1 more time%2)").arg(held_back).arg(ending)
               : QStringLiteral("(the %1 lines above went on: %2 more line%3)")
                     .arg(group)
                     .arg(held_back)
                     .arg(ending);
}

bool RepeatedLines::Repeats(qsizetype group) const
{
    return recent_.size() >= 2 * group &&
           std::equal(recent_.end() - group, recent_.end(), recent_.end() - 2 * group);
}
