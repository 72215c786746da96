#include "bundle_check/report.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

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
    bool const names_key = FindKeyRule(key) != nullptr;
    return file + GetName(finding.severity) + u": "_s + (names_key ? key + u": "_s : QString()) +
           finding.text;
}

QString Amount(int count, QString const& name)
{
    return u"%1 %2%3"_s.arg(count).arg(name, count == 1 ? QString() : u"s"_s);
}

QString SumUp(Report const& report)
{
    QStringList parts;
    for (auto const severity : {Severity::Error, Severity::Warning}) {
        if (auto const count = report.findings.Count(severity); count > 0) {
            parts.append(Amount(count, GetName(severity)));
        }
    }
    return parts.isEmpty() ? u"clean"_s : parts.join(u", "_s);
}

// To whole seconds; an update never takes none.
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
    lines.append(SumUp(report));
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
        {u"interface"_s,
         report.interface_name.isEmpty() ? QJsonValue() : QJsonValue(report.interface_name)},
        {u"findings"_s, findings},
        {u"omitted"_s, report.findings.Omitted()},
        {u"predictions"_s, predictions}};
    return QJsonDocument(object).toJson();
}

}  // namespace bundle_check
