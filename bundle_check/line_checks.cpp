// The lines of config.ini: keys, quotation marks, escapes.
#include <QHash>

#include "bundle_check/checks.h"
#include "bundle_check/edits.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

Place PlaceOf(IniEntry const& entry)
{
    return {entry.key, entry.line};
}

// The known key that was probably meant, or an empty text.
QString GuessKey(QString const& key)
{
    constexpr qsizetype kLongestGuess = 40;
    if (key.size() > kLongestGuess) {
        return {};
    }
    auto const folded = key.toLower().replace(u'-', u'_');
    for (auto const* known : config_keys::kAll) {
        if (CountEdits(folded, QString(known->name)) <= kMostEdits) {
            return known->name;
        }
    }
    return {};
}

void CheckKey(IniEntry const& entry, Findings& findings)
{
    if (entry.key.startsWith(u'#')) {
        findings.Warn(PlaceOf(entry),
                      u"%1 is read as a key; begin a comment with a semicolon, not with '#'."_s.arg(
                          Quote(entry.key)));
        return;
    }
    if (config_keys::Find(entry.key) != nullptr) {
        return;
    }
    auto const guess = GuessKey(entry.key);
    auto const hint = guess.isEmpty() ? QString()
                      : guess.compare(entry.key, Qt::CaseInsensitive) == 0
                          ? u" Keys are case-sensitive; did you mean %1?"_s.arg(guess)
                          : u" Did you mean %1?"_s.arg(guess);
    findings.Warn(PlaceOf(entry),
                  u"%1 is not a known key and is ignored.%2"_s.arg(Quote(entry.key), hint));
}

void CheckSection(IniEntry const& entry, Findings& findings)
{
    if (entry.section && config_keys::Find(entry.key) != nullptr) {
        findings.Warn(PlaceOf(entry),
                      u"The key is in the section %1, where the program does not read it; move it "
                      "above the first section or into [General]."_s.arg(
                          Quote(u'[' + *entry.section + u']')));
    }
}

void CheckQuotes(IniEntry const& entry, Findings& findings)
{
    if (entry.open_quotes) {
        findings.Fail(PlaceOf(entry),
                      u"The closing quotation mark is missing: the rest of the file, up to line "
                      "%1, becomes part of this value; add it at the end of the text."_s.arg(
                          entry.last_line));
    } else if (entry.last_line > entry.line) {
        findings.Warn(PlaceOf(entry),
                      u"The value continues to line %1; check for a missing quotation mark, or a "
                      "stray backslash at the end of a line."_s.arg(entry.last_line));
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
                u"%1 is not an escape sequence, and both characters are dropped; write '\\\\' for "
                "a backslash."_s.arg(Quote(QString::fromUtf8(entry.value.mid(at, 2)))));
            return;
        }
    }
}

// True when nothing can be missing after the value: it is a number, a name, or all in quotation
// marks, so that a semicolon can only begin a comment.
bool IsComplete(IniEntry const& entry, Form form)
{
    bool const is_quoted = entry.value.size() > 1 && entry.value.startsWith('"') &&
                           entry.value.endsWith('"') && !entry.mixed_quotes;
    auto const word = entry.value.toLower();
    bool const is_name =
        form == Form::TargetType && (word == kCustomerTarget || word == kServiceTarget);
    return is_quoted || is_name || form == Form::Address || form == Form::Decimal ||
           form == Form::Interface;
}

void CheckSemicolon(IniEntry const& entry, Findings& findings)
{
    auto const* key = config_keys::Find(entry.key);
    if (entry.semicolon && key != nullptr && !IsComplete(entry, key->form)) {
        bool const is_list = key->form == Form::DeviceIds || key->form == Form::Products;
        findings.Warn(PlaceOf(entry),
                      u"An unquoted semicolon ends the value, so the program reads only %1; %2, or "
                      "put the comment on its own line."_s.arg(
                          Quote(QString::fromUtf8(entry.value)),
                          is_list ? u"separate the entries with commas"_s
                                  : u"put the value in quotation marks"_s));
    }
}

void CheckDuplicates(IniLines const& lines, Findings& findings)
{
    QHash<QString, int> first_lines;
    QHash<QString, IniEntry const*> last_entries;
    for (auto const& entry : lines.entries) {
        auto const name = entry.FullName();
        if (!first_lines.contains(name)) {
            first_lines[name] = entry.line;
        }
        last_entries[name] = &entry;
    }
    for (auto const& entry : lines.entries) {
        auto const name = entry.FullName();
        if (auto const first = first_lines[name];
            last_entries[name] == &entry && first != entry.line) {
            findings.Warn(
                PlaceOf(entry),
                u"The key is already set on line %1; this value is used. Keep only one of the "
                "lines."_s.arg(first));
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
                      u"%1 has no '=' and is ignored; begin a comment with a semicolon."_s.arg(
                          Quote(stray.text)));
    }
}

bool FindForeignForms(IniLines const& lines, Findings& findings)
{
    bool found = false;
    for (auto const& entry : lines.entries) {
        if (MayBeForeignForm(entry.value)) {
            found = true;
            findings.Fail(
                PlaceOf(entry),
                u"The value contains '@NAME(', Qt's notation for values that are not text, or "
                "an escape sequence that may produce it; write '@@' for a visible '@'. "
                "No value of this file was checked."_s);
        }
    }
    return found;
}

}  // namespace bundle_check
