// The instructions of the product against the texts of the window that no product changes.
#include <QProgressBar>
#include <QRegularExpression>
#include <QStringList>

#include "bundle_check/window_checks.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

// The numbers of the steps that the error text refers to ("repeat step 1-3").
struct Steps {
    int first = 0;
    int last = 0;
};

Steps FindSteps(WindowView& view)
{
    static QRegularExpression const range(u"\\bstep (\\d)-(\\d)\\b"_s);
    for (auto const& state : view.States()) {
        view.Enter(state);
        if (auto const match = range.match(view.Bar()->text()); match.hasMatch()) {
            return {match.captured(1).toInt(), match.captured(2).toInt()};
        }
    }
    return {};
}

// A line that begins with the number, in any form, or with a word and the number ("Step 1:").
bool HasStep(QString const& instructions, int number)
{
    QRegularExpression const step(
        u"^\\W*(?:\\p{L}+\\s*)?%1(?!\\d)"_s.arg(number),
        QRegularExpression::MultilineOption | QRegularExpression::UseUnicodePropertiesOption);
    return step.match(instructions.normalized(QString::NormalizationForm_KC)).hasMatch();
}

// Another plug than the one that the window asks for, in instructions that do not name that one.
QString FindOtherConnector(QString const& instructions)
{
    static QRegularExpression const usb_c(u"\\busb[- ]?(?:type[- ]?)?c\\b"_s,
                                          QRegularExpression::CaseInsensitiveOption);
    // A lower-case "a" after "USB" is a word of its own.
    static QRegularExpression const connector(
        u"\\b(?:(?i:micro|mini)[- ]?(?i:usb|[ab]\\b)|(?i:usb)[- ]?(?i:micro|mini)|"
        "(?i:usb)(?i:[- ]?type)?(?:[- ]?[AB]|-[ab])|(?i:lightning))\\b"_s);
    return usb_c.match(instructions).hasMatch() ? QString()
                                                : connector.match(instructions).captured();
}

// "1, 2 or 3".
QString JoinWithOr(QStringList const& items)
{
    auto const before = items.mid(0, items.size() - 1).join(u", "_s);
    return before.isEmpty() ? items.last() : before + u" or "_s + items.last();
}

}  // namespace

void CheckFixedTexts(Config const& config, WindowView& view, Findings& findings)
{
    auto const& key = config_keys::kInstructionsText;
    auto const instructions = config.Value(key).toString();
    if (instructions.trimmed().isEmpty()) {
        return;
    }
    auto const steps = FindSteps(view);
    QStringList missing;
    for (int number = steps.first; number > 0 && number <= steps.last; ++number) {
        if (!HasStep(instructions, number)) {
            missing.append(QString::number(number));
        }
    }
    if (!missing.isEmpty()) {
        findings.Warn(
            config.PlaceOf(key),
            u"After a failure the window asks to repeat the steps %1 to %2, but no line of "
            "the instructions begins with %3; number the steps that put the unit into boot mode."_s
                .arg(steps.first)
                .arg(steps.last)
                .arg(JoinWithOr(missing)));
    }
    if (auto const connector = FindOtherConnector(instructions); !connector.isEmpty()) {
        findings.Warn(
            config.PlaceOf(key),
            u"The window always asks for a cable with a USB-C connector, but the "
            "instructions name %1; describe only the computer's end of the cable, or no plug."_s
                .arg(Quote(connector)));
    }
}

}  // namespace bundle_check
