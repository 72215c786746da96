#include "bundle_check/report.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <numeric>

#include "config/config_keys.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr qsizetype kMostKept = 200;

int SortLine(Finding const& finding)
{
    return finding.place.line > 0 ? finding.place.line : std::numeric_limits<int>::max();
}

QString GetName(Severity severity)
{
    switch (severity) {
        case Severity::Note:
            return u"note"_s;
        case Severity::Warning:
            return u"warning"_s;
        case Severity::Error:
            break;
    }
    return u"error"_s;
}

QString FormatFinding(Finding const& finding)
{
    auto const& [key, line] = finding.place;
    auto const file = line > 0         ? u"config.ini:%1: "_s.arg(line)
                      : !key.isEmpty() ? u"config.ini: "_s
                                       : QString();
    bool const names_key = config_keys::Find(key) != nullptr;
    return file + GetName(finding.severity) + u": "_s + (names_key ? key + u": "_s : QString()) +
           finding.text;
}

// As it is written in config.ini, or by its number if it cannot be seen.
QString Spell(char32_t character)
{
    return character == U'\n'          ? u"\\n"_s
           : character == U'\t'        ? u"\\t"_s
           : QChar::isPrint(character) ? QString::fromUcs4(&character, 1)
                                       : u'<' + NameCharacter(character) + u'>';
}

QString Amount(int count, QString const& name)
{
    return u"%1 %2%3"_s.arg(count).arg(name, count == 1 ? QString() : u"s"_s);
}

QString Summarise(Report const& report)
{
    QStringList parts;
    for (auto const severity : {Severity::Error, Severity::Warning}) {
        if (auto const count = report.findings.Count(severity); count > 0) {
            parts.append(Amount(count, GetName(severity)));
        }
    }
    return parts.isEmpty() ? u"clean"_s : parts.join(u", "_s);
}

// Whole seconds, at least one.
int RoundSeconds(double seconds)
{
    return std::max(1, static_cast<int>(std::lround(seconds)));
}

QJsonObject ToJson(Finding const& finding)
{
    auto const& [key, line] = finding.place;
    return {{u"severity"_s, GetName(finding.severity)},
            {u"key"_s, key.isEmpty() ? QJsonValue() : QJsonValue(key)},
            {u"line"_s, line > 0 ? QJsonValue(line) : QJsonValue()},
            {u"text"_s, finding.text}};
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

QString NameCharacter(char32_t character)
{
    return u"U+%1"_s.arg(QString::number(character, 16).toUpper().rightJustified(4, u'0'));
}

QString Quote(QString const& text)
{
    constexpr qsizetype kMostCharacters = 60;
    constexpr qsizetype kMostUnits = 2;  // of UTF-16, for a character
    auto const characters = text.left(kMostUnits * kMostCharacters + 1).toUcs4();
    QString quoted;
    for (char32_t const character : characters.mid(0, kMostCharacters)) {
        quoted += Spell(character);
    }
    auto const more = characters.size() > kMostCharacters ? u"..."_s : QString();
    return u'\'' + quoted + more + u'\'';
}

QString JoinFirst(QStringList const& items)
{
    constexpr qsizetype kMost = 5;
    auto const more = items.size() - kMost;
    return items.mid(0, kMost).join(u", "_s) + (more > 0 ? u" and %1 more"_s.arg(more) : QString());
}

QString QuoteAll(QStringList const& texts)
{
    QStringList quoted;
    for (auto const& text : texts) {
        quoted.append(Quote(text));
    }
    return JoinFirst(quoted);
}

int GetExitStatus(Report const& report)
{
    if (report.findings.Count(Severity::Error) > 0) {
        return 2;
    }
    return report.findings.Count(Severity::Warning) > 0 ? 1 : 0;
}

QString FormatText(Report const& report)
{
    QStringList lines;
    for (auto const& finding : report.findings.Sorted()) {
        lines.append(FormatFinding(finding));
    }
    if (auto const omitted = report.findings.Omitted(); omitted > 0) {
        lines.append(u"%1 more are not shown"_s.arg(omitted));
    }
    for (auto const& prediction : report.predictions) {
        lines.append(u"%1 over %2: an update takes about %3 s"_s.arg(
            Quote(prediction.product), report.interface_name,
            QString::number(RoundSeconds(prediction.seconds))));
    }
    lines.append(Summarise(report));
    return lines.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

QByteArray FormatJson(Report const& report)
{
    static constexpr char const* kStatus[] = {"clean", "warnings", "errors"};
    QJsonArray findings;
    for (auto const& finding : report.findings.Sorted()) {
        findings.append(ToJson(finding));
    }
    QJsonArray predictions;
    for (auto const& prediction : report.predictions) {
        predictions.append(QJsonObject{{u"product"_s, prediction.product},
                                       {u"seconds"_s, RoundSeconds(prediction.seconds)}});
    }
    QJsonObject const object{
        {u"status"_s, QString::fromLatin1(kStatus[GetExitStatus(report)])},
        {QString(config_keys::kInterface.name),
         report.interface_name.isEmpty() ? QJsonValue() : QJsonValue(report.interface_name)},
        {u"findings"_s, findings},
        {u"omitted"_s, report.findings.Omitted()},
        {u"predictions"_s, predictions}};
    return QJsonDocument(object).toJson();
}

}  // namespace bundle_check
