// The texts of the window, in the window.
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QStringList>
#include <QTextDocumentFragment>
#include <algorithm>
#include <iterator>

#include "bundle_check/window_checks.h"
#include "bundle_check/window_text.h"
#include "config/bundle_paths.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

struct ShownText {
    Place place;  // without a key: the text is the program's own
    QWidget* widget;
    QString text;
    bool is_rich = false;  // Qt reads it as HTML

    bool IsOwn() const { return place.key.isEmpty(); }
    QString Name() const
    {
        return IsOwn() ? u"The program's own text %1"_s.arg(Quote(text)) : Quote(text);
    }
};

// The labels that show the value of a key.
struct KeyLabel {
    QLatin1StringView label;
    Key const* key;
};

constexpr KeyLabel kKeyLabels[] = {
    {"productLabel"_L1, &config_keys::kProductText},
    {"versionNumberLabel"_L1, &config_keys::kFwVersion},
    {"instructionsLabel"_L1, &config_keys::kInstructionsText},
    {"typeLabel"_L1, &config_keys::kFwTargetType},
};

// Without a key for a text of the program's own.
Place FindPlace(Config const& config, QLabel const& label)
{
    auto const* const found = std::ranges::find(kKeyLabels, label.objectName(), &KeyLabel::label);
    return found == std::end(kKeyLabels) ? Place() : config.PlaceOf(*found->key);
}

void AddOnce(QList<ShownText>& shown, QWidget* widget, QString const& text)
{
    bool const is_known = std::ranges::any_of(shown, [&](ShownText const& other) {
        return other.widget == widget && other.text == text;
    });
    if (!is_known && !text.isEmpty()) {
        shown.append({{}, widget, text});
    }
}

// What the window shows in any of its states.
QList<ShownText> CollectTexts(Config const& config, WindowView& view)
{
    QList<ShownText> shown;
    for (auto* label : view.Labels()) {
        if (!label->text().isEmpty()) {
            shown.append({FindPlace(config, *label), label, label->text(),
                          Qt::mightBeRichText(label->text())});
        }
    }
    for (auto const& state : view.States()) {
        view.Enter(state);
        AddOnce(shown, view.Button(), view.Button()->text());
        AddOnce(shown, view.Bar(), view.Bar()->text());
    }
    return shown;
}

void CheckRichText(ShownText const& shown, Findings& findings)
{
    auto const plain = QTextDocumentFragment::fromHtml(shown.text).toPlainText();
    findings.Fail(
        shown.place,
        u"Qt takes %1 for HTML, and the window shows %2; write it without '<' and '>'."_s.arg(
            Quote(shown.text), Quote(plain)));
}

TextFit Measure(ShownText const& shown)
{
    auto* const label = qobject_cast<QLabel*>(shown.widget);
    return label != nullptr ? MeasureLabel(*label) : MeasureCentred(*shown.widget, shown.text);
}

QString DescribeCut(ShownText const& shown, TextFit const& fit)
{
    auto const subject = shown.IsOwn() ? u"The program's own text "_s : QString();
    if (fit.is_width) {
        return u"%1%2 would be shown as %3"_s.arg(subject, Quote(fit.line), Quote(fit.visible));
    }
    if (fit.lost_lines == 0) {
        return u"%1%2 would lose its upper or lower edge"_s.arg(subject, Quote(shown.text));
    }
    return u"%1%2 would be shown without its last %3"_s.arg(
        subject, Quote(shown.text),
        fit.lost_lines == 1 ? u"line"_s : u"%1 lines"_s.arg(fit.lost_lines));
}

// How large a text is on one of the systems.
struct Fits {
    TextFit macos;
    TextFit other;
};

void ReportCut(ShownText const& shown, Fits const& fits, bool is_for_macos, Findings& findings)
{
    bool const on_macos = fits.other.fits || (is_for_macos && !fits.macos.fits);
    auto const& fit = on_macos ? fits.macos : fits.other;
    auto const& rest = on_macos ? fits.other : fits.macos;
    auto const rest_dpi = on_macos ? kOtherDpi : kMacosDpi;
    auto const there = rest.fits ? u"it fits at %1 dpi"_s.arg(rest_dpi)
                                 : u"%1 at %2 dpi"_s.arg(rest.needed).arg(rest_dpi);
    auto const figures = u"%1 pixels%2 are free, %3 needed at %4 dpi (%5; a Mac has %6 dpi)"_s.arg(
        QString::number(fit.free), fit.is_width ? QString() : u" of height"_s,
        QString::number(fit.needed), QString::number(on_macos ? kMacosDpi : kOtherDpi), there,
        QString::number(kMacosDpi));
    bool const can_be_shortened = !shown.IsOwn() && (fit.is_width || fit.lost_lines > 0);
    auto const cure = !can_be_shortened ? u"use fonts with smaller letters"_s
                      : fit.is_width    ? u"shorten it, or use narrower fonts"_s
                                        : u"shorten it, or use fonts with a smaller line height"_s;
    bool const is_elsewhere = is_for_macos && fits.macos.fits;
    findings.Add(is_elsewhere ? Severity::Note : Severity::Error, shown.place,
                 u"%1; %2; %3."_s.arg(DescribeCut(shown, fit), figures, cure));
}

void CheckFits(QList<ShownText> const& shown, bool is_for_macos, WindowView& view,
               Findings& findings)
{
    QList<Fits> fits(shown.size());
    for (int const dpi : {kMacosDpi, kOtherDpi}) {
        view.SetDpi(dpi);
        for (qsizetype i = 0; i < shown.size(); ++i) {
            (dpi == kMacosDpi ? fits[i].macos : fits[i].other) =
                shown[i].is_rich ? TextFit() : Measure(shown[i]);
        }
    }
    for (qsizetype i = 0; i < shown.size(); ++i) {
        if (!fits[i].macos.fits || !fits[i].other.fits) {
            ReportCut(shown[i], fits[i], is_for_macos, findings);
        }
    }
}

QString DescribeCharacter(char32_t character)
{
    return u"%1 (U+%2)"_s.arg(Quote(QString::fromUcs4(&character, 1)),
                              QString::number(character, 16).toUpper().rightJustified(4, u'0'));
}

void CheckCharacters(ShownText const& shown, FontFiles const& fonts, Findings& findings)
{
    constexpr qsizetype kMost = 5;
    auto const style = QString::fromLatin1(
        shown.widget->font().weight() > QFont::Medium ? kBoldStyle : kRegularStyle);
    QStringList missing;
    for (char32_t const character : shown.text.toUcs4()) {
        auto const name = DescribeCharacter(character);
        if (character >= U' ' && !fonts.styles[style].supportsCharacter(character) &&
            !missing.contains(name)) {
            missing.append(name);
        }
    }
    if (!missing.isEmpty()) {
        findings.Warn(shown.place,
                      u"%1%2 is not in the style %3 of the fonts, so the window takes it from "
                      "another font, or shows a box; use fonts that have it."_s.arg(
                          shown.IsOwn() ? shown.Name() + u": "_s : QString(),
                          missing.mid(0, kMost).join(u", "_s), style));
    }
}

// The numbers of the steps that the error text refers to ("repeat step 1-3").
struct Steps {
    int first = 0;
    int last = 0;
};

Steps FindSteps(QList<ShownText> const& shown)
{
    static QRegularExpression const range(u"\\bstep (\\d)-(\\d)\\b"_s);
    for (auto const& text : shown) {
        if (auto const match = range.match(text.text); text.IsOwn() && match.hasMatch()) {
            return {match.captured(1).toInt(), match.captured(2).toInt()};
        }
    }
    return {};
}

// A line that begins with the number, or with a word and the number ("Step 1:").
bool HasStep(QString const& instructions, int number)
{
    QRegularExpression const step(
        u"^\\W*(?:\\p{L}+\\s+)?%1(?!\\d)"_s.arg(number),
        QRegularExpression::MultilineOption | QRegularExpression::UseUnicodePropertiesOption);
    return step.match(instructions).hasMatch();
}

// Other plugs than the one that the window asks for.
QString FindOtherConnector(QString const& instructions)
{
    static QRegularExpression const connector(
        u"\\b(?:(?:micro|mini)[- ]?(?:usb)?|usb[- ]?(?:type[- ]?)?[ab]|usb[- ]?(?:micro|mini)|"
        "lightning)\\b"_s,
        QRegularExpression::CaseInsensitiveOption);
    return connector.match(instructions).captured();
}

}  // namespace

bool CheckLengths(Config const& config, Findings& findings)
{
    constexpr qsizetype kMostCharacters = 1000;
    bool are_short = true;
    for (auto const& [label, key] : kKeyLabels) {
        auto const size = config.Value(*key).toString().size();
        if (size > kMostCharacters) {
            are_short = false;
            findings.Fail(
                config.PlaceOf(*key),
                u"The text has %1 characters, far more than the window has room for."_s.arg(size));
        }
    }
    return are_short;
}

void CheckShownTexts(Config const& config, FontFiles const& fonts, bool is_for_macos,
                     WindowView& view, Findings& findings)
{
    auto shown = CollectTexts(config, view);
    // Has been reported, and nobody knows what it should be.
    erase_if(shown,
             [](ShownText const& text) { return text.text.contains(QChar::ReplacementCharacter); });
    for (auto const& text : shown) {
        if (text.is_rich) {
            CheckRichText(text, findings);
        }
        CheckCharacters(text, fonts, findings);
    }
    CheckFits(shown, is_for_macos, view, findings);
}

void CheckFixedTexts(Config const& config, WindowView& view, Findings& findings)
{
    auto const& key = config_keys::kInstructionsText;
    auto const instructions = config.Value(key).toString();
    if (instructions.isEmpty()) {
        return;
    }
    auto const steps = FindSteps(CollectTexts(config, view));
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
                .arg(missing.join(u" or "_s)));
    }
    if (auto const connector = FindOtherConnector(instructions); !connector.isEmpty()) {
        findings.Warn(
            config.PlaceOf(key),
            u"The window always asks for a cable with USB-C connector, but the "
            "instructions name %1; describe only the computer's end of the cable, or no plug."_s
                .arg(Quote(connector)));
    }
}

}  // namespace bundle_check
