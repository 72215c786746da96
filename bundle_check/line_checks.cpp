#include "bundle_check/line_checks.h"

#include <QHash>
#include <algorithm>
#include <utility>
#include <vector>

#include "bundle_check/config_keys.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

Place PlaceOf(IniEntry const& entry)
{
    return {entry.key, entry.line};
}

// How many letters must be put in, taken out or changed to make one word of the other.
int CountEdits(QString const& from, QString const& to)
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

// The known key that was probably meant, or an empty text.
QString GuessKey(QString const& key)
{
    constexpr int kMostEdits = 2;
    constexpr qsizetype kLongestGuess = 40;
    if (key.size() > kLongestGuess) {
        return {};
    }
    auto const folded = key.toLower().replace(QLatin1Char('-'), QLatin1Char('_'));
    for (auto const& rule : kKeyRules) {
        auto const name = QString::fromLatin1(rule.name);
        if (CountEdits(folded, name) <= kMostEdits) {
            return name;
        }
    }
    return {};
}

void CheckKey(IniEntry const& entry, Findings& findings)
{
    if (entry.key.startsWith(QLatin1Char('#'))) {
        findings.Warn(PlaceOf(entry),
                      u"%1 is read as a key: a comment begins with a semicolon, not with #."_s.arg(
                          Quote(entry.key)));
        return;
    }
    if (FindKeyRule(entry.key) != nullptr) {
        return;
    }
    auto const guess = GuessKey(entry.key);
    auto const hint =
        guess.isEmpty() ? QString()
        : guess.compare(entry.key, Qt::CaseInsensitive) == 0
            ? u" Large and small letters make a difference: the key is %1."_s.arg(guess)
            : u" Was %1 meant?"_s.arg(guess);
    findings.Warn(PlaceOf(entry),
                  u"The key %1 is not one that the program knows, and is ignored.%2"_s.arg(
                      Quote(entry.key), hint));
}

void CheckSection(IniEntry const& entry, Findings& findings)
{
    if (entry.section && FindKeyRule(entry.key) != nullptr) {
        findings.Warn(PlaceOf(entry),
                      u"The key stands in the section %1, where the program does not see it: it "
                      "reads only keys above the first section or in [General]."_s.arg(
                          Quote(QLatin1Char('[') + *entry.section + QLatin1Char(']'))));
    }
}

void CheckQuotes(IniEntry const& entry, Findings& findings)
{
    if (entry.open_quotes) {
        findings.Fail(PlaceOf(entry),
                      u"A quotation mark is not closed: all that follows in the file, to line %1, "
                      "belongs to this value."_s.arg(entry.last_line));
    } else if (entry.last_line > entry.line) {
        findings.Warn(PlaceOf(entry),
                      u"The value goes on to line %1; is a closing quotation mark missing, or a "
                      "backslash too many at the end of a line?"_s.arg(entry.last_line));
    }
}

bool IsKnownEscape(QByteArray const& value, qsizetype backslash)
{
    static QByteArray const known("abfnrtv\"?'\\01234567\r\n");
    static QByteArray const digits("0123456789abcdefABCDEF");
    if (value[backslash + 1] == 'x') {
        return backslash + 2 < value.size() && digits.contains(value[backslash + 2]);
    }
    return known.contains(value[backslash + 1]);
}

void CheckEscapes(IniEntry const& entry, Findings& findings)
{
    for (auto at = entry.value.indexOf('\\'); at >= 0 && at + 1 < entry.value.size();
         at = entry.value.indexOf('\\', at + 2)) {
        if (!IsKnownEscape(entry.value, at)) {
            findings.Warn(
                PlaceOf(entry),
                u"%1 is no escape sequence, and both characters are dropped; a backslash "
                "itself is written twice."_s.arg(Quote(QString::fromUtf8(entry.value.mid(at, 2)))));
            return;
        }
    }
}

// Whether nothing can be missing behind the value: it is a number, a name, or all in quotation
// marks, so that a semicolon can only begin a comment.
bool IsComplete(IniEntry const& entry, Form form)
{
    bool const is_quoted = entry.value.size() > 1 && entry.value.startsWith('"') &&
                           entry.value.endsWith('"') && !entry.decoded.mixed_quotes;
    auto const word = entry.value.toLower();
    bool const is_name = form == Form::TargetType && (word == "customer" || word == "service");
    return is_quoted || is_name || form == Form::Address || form == Form::Decimal ||
           form == Form::Interface;
}

void CheckSemicolon(IniEntry const& entry, Findings& findings)
{
    auto const* rule = FindKeyRule(entry.key);
    if (entry.semicolon && rule != nullptr && !IsComplete(entry, rule->form)) {
        findings.Warn(PlaceOf(entry),
                      u"An unquoted semicolon ends the value: the program reads %1 and not the "
                      "rest. Put the value in quotation marks, or the comment on a line of its "
                      "own."_s.arg(Quote(QString::fromUtf8(entry.value))));
    }
}

void CheckDuplicates(IniLines const& lines, Findings& findings)
{
    QHash<QString, int> first_lines;
    for (auto const& entry : lines.entries) {
        auto const name = entry.FullName();
        auto const first = first_lines.constFind(name);
        if (first == first_lines.constEnd()) {
            first_lines[name] = entry.line;
        } else {
            findings.Warn(PlaceOf(entry),
                          u"The key stood in line %1 already; the last one counts."_s.arg(*first));
        }
    }
}

}  // namespace

void CheckLines(IniLines const& lines, Findings& findings)
{
    for (auto const& entry : lines.entries) {
        CheckKey(entry, findings);
        CheckSection(entry, findings);
        CheckQuotes(entry, findings);
        CheckEscapes(entry, findings);
        CheckSemicolon(entry, findings);
    }
    CheckDuplicates(lines, findings);
    for (auto const& stray : lines.strays) {
        findings.Warn({{}, stray.line},
                      u"%1 has no \"=\" and is ignored; a comment begins with a semicolon."_s.arg(
                          Quote(stray.text)));
    }
}

bool FindForeignForms(IniLines const& lines, Findings& findings)
{
    bool found = false;
    for (auto const& entry : lines.entries) {
        if (std::ranges::any_of(entry.decoded.elements, IsForeignForm)) {
            found = true;
            findings.Fail(PlaceOf(entry),
                          u"The value, or an element of its list, has the form @NAME(...), a "
                          "notation of QSettings' own; a text that only looks so begins with "
                          "\"@@\". The values of this file were not looked at."_s);
        }
    }
    return found;
}

}  // namespace bundle_check
