#include "bundle_check/findings.h"

#include <iterator>
#include <limits>
#include <map>
#include <numeric>

namespace bundle_check {

namespace {

constexpr qsizetype kMostKept = 200;

int SortLine(Finding const& finding)
{
    return finding.place.line > 0 ? finding.place.line : std::numeric_limits<int>::max();
}

}  // namespace

void Findings::Note(Place const& place, QString const& text)
{
    Add(Severity::Note, place, text);
}

void Findings::Warn(Place const& place, QString const& text)
{
    Add(Severity::Warning, place, text);
}

void Findings::Fail(Place const& place, QString const& text)
{
    Add(Severity::Error, place, text);
}

QList<Finding> Findings::Sorted() const
{
    std::map<int, QList<Finding>> lines;
    for (auto const& finding : kept_) {
        lines[SortLine(finding)].append(finding);
    }
    QList<Finding> sorted;
    for (auto const& [line, findings] : lines) {
        sorted += findings;
    }
    return sorted;
}

int Findings::Count(Severity severity) const
{
    return counts_[static_cast<int>(severity)];
}

int Findings::Omitted() const
{
    return std::accumulate(std::begin(counts_), std::end(counts_), 0) -
           static_cast<int>(kept_.size());
}

void Findings::Add(Severity severity, Place const& place, QString const& text)
{
    ++counts_[static_cast<int>(severity)];
    if (kept_.size() < kMostKept) {
        kept_.append({severity, place, text});
    }
}

QString Quote(QString const& text)
{
    constexpr qsizetype kMostCharacters = 60;
    auto quoted = text.left(kMostCharacters);
    for (auto& character : quoted) {
        // A surrogate may have lost its other half to the cut.
        if (!character.isPrint() || character.isSurrogate()) {
            character = QLatin1Char('?');
        }
    }
    auto const more = text.size() > kMostCharacters ? QStringLiteral("...") : QString();
    return QLatin1Char('"') + quoted + more + QLatin1Char('"');
}

}  // namespace bundle_check
