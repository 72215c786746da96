// The texts of the window, in the window.
#include <QFontMetricsF>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
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
            Quote(shown.text), plain.trimmed().isEmpty() ? u"nothing"_s : Quote(plain)));
}

TextFit Measure(ShownText const& shown)
{
    auto* const label = qobject_cast<QLabel*>(shown.widget);
    return label != nullptr ? MeasureLabel(*label) : MeasureCentred(*shown.widget, shown.text);
}

QString NameDpi(int dpi)
{
    return dpi == kMacosDpi ? u"%1 dpi, on a Mac"_s.arg(dpi) : u"%1 dpi"_s.arg(dpi);
}

// Fonts for another system come out larger or smaller. The window's smallest text has 10 points, as
// the smallest texts of macOS do.
void CheckSmallest(QList<ShownText> const& shown, int dpi, WindowView& view, Findings& findings)
{
    // The capital letters of usual fonts have 7 pixels at 10 points on a Mac.
    constexpr double kLeastHeight = 6.5;
    view.SetDpi(dpi);
    auto const height = [](ShownText const& text) {
        return QFontMetricsF(text.widget->font()).capHeight();
    };
    auto const smallest = std::ranges::min(shown, {}, height);
    if (auto const pixels = height(smallest); pixels < kLeastHeight) {
        findings.Warn(
            {},
            u"The letters are small: at %1, the capital letters of %2 are %3 pixels high, less "
            "than %4; use fonts with larger letters, which resources/fonts/derive_font.py in the "
            "vendor tools makes for %5 dpi."_s.arg(
                NameDpi(dpi), Quote(smallest.text), FormatBelow(pixels),
                QString::number(kLeastHeight), QString::number(dpi)));
    }
}

// What no font has, because it is not to be seen.
bool IsInvisible(char32_t character)
{
    constexpr char32_t kFirstSelector = 0xFE00;
    constexpr char32_t kLastSelector = 0xFE0F;
    return character == U'\n' || character == U'\r' || character == U'\t' ||
           QChar::category(character) == QChar::Other_Format ||
           (character >= kFirstSelector && character <= kLastSelector);
}

QString DescribeCharacter(char32_t character)
{
    return QChar::isPrint(character)
               ? u"%1 (%2)"_s.arg(Quote(QString::fromUcs4(&character, 1)), NameCharacter(character))
               : NameCharacter(character);
}

void CheckCharacters(ShownText const& shown, FontFiles const& fonts, Findings& findings)
{
    auto const style = QString::fromLatin1(
        shown.widget->font().weight() > QFont::Medium ? kBoldStyle : kRegularStyle);
    QStringList missing;
    QStringList control;
    for (char32_t const character : shown.text.toUcs4()) {
        bool const is_control = QChar::category(character) == QChar::Other_Control;
        auto& list = is_control ? control : missing;
        auto const name = DescribeCharacter(character);
        if (!IsInvisible(character) && !fonts.styles[style].supportsCharacter(character) &&
            !list.contains(name)) {
            list.append(name);
        }
    }
    if (!control.isEmpty()) {
        findings.Warn(shown.place,
                      u"The text contains the control character %1, which appears as a box; remove "
                      "it, or write '\\\\' if a backslash is meant."_s.arg(JoinFirst(control)));
    }
    if (!missing.isEmpty()) {
        bool const is_one = missing.size() == 1;
        findings.Warn(
            shown.place,
            u"%1%2 %3 not in the style %4 of the fonts, so the window takes %5 from "
            "another font, or shows boxes; use fonts that have %5, or write the text "
            "without."_s.arg(shown.IsOwn() ? shown.Name() + u": "_s : QString(), JoinFirst(missing),
                             is_one ? u"is"_s : u"are"_s, style, is_one ? u"it"_s : u"them"_s));
    }
}

struct CutText {
    QString what;  // would happen to the text
    QString cure;  // if the vendor can change it
};

CutText DescribeCut(ShownText const& shown, TextFit const& fit)
{
    if (fit.is_width) {
        auto const subject = shown.IsOwn() ? u"The program's own text "_s : QString();
        return {u"%1%2 would be shown as %3"_s.arg(subject, Quote(fit.line), Quote(fit.visible)),
                u"shorten it, or use narrower fonts"_s};
    }
    if (fit.lost_lines == 0) {
        auto const edges = !fit.loses_bottom ? u"upper edge"_s
                           : !fit.loses_top  ? u"lower edge"_s
                                             : u"upper and lower edges"_s;
        return {u"%1 would lose its %2"_s.arg(shown.Name(), edges),
                u"use characters of the usual height, or fonts with smaller letters"_s};
    }
    if (fit.lost_lines == fit.lines) {
        return {u"%1 has %2 lines, but there is room for only one"_s.arg(
                    shown.Name(), QString::number(fit.lines)),
                u"write it on one line"_s};
    }
    auto const lost = fit.lost_lines == 1 ? u"last line, %1"_s.arg(Quote(fit.line))
                                          : u"last %1 lines, from %2 on"_s.arg(
                                                QString::number(fit.lost_lines), Quote(fit.line));
    return {u"%1 would lose its %2"_s.arg(shown.Name(), lost),
            u"shorten it, or use fonts with a smaller line height"_s};
}

// How large a text is on one of the systems.
struct Fits {
    TextFit macos;
    TextFit other;
};

void ReportCut(ShownText const& shown, Fits const& fits, bool is_for_macos, Findings& findings)
{
    bool const on_macos = is_for_macos || fits.other.fits;
    auto const& fit = on_macos ? fits.macos : fits.other;
    auto const& rest = on_macos ? fits.other : fits.macos;
    auto const rest_dpi = NameDpi(on_macos ? kOtherDpi : kMacosDpi);
    // Widths are not compared with heights.
    auto const there = rest.fits ? u"it fits at "_s + rest_dpi
                       : rest.is_width == fit.is_width
                           ? u"%1 at %2"_s.arg(QString::number(rest.needed), rest_dpi)
                           : u"nor does it fit at "_s + rest_dpi;
    auto const [what, cure] = DescribeCut(shown, fit);
    findings.Fail(shown.place,
                  u"%1; %2 pixels%3 are free, %4 needed at %5 (%6); %7."_s.arg(
                      what, QString::number(fit.free), fit.is_width ? QString() : u" of height"_s,
                      QString::number(fit.needed), NameDpi(on_macos ? kMacosDpi : kOtherDpi), there,
                      shown.IsOwn() ? u"use fonts with smaller letters "
                                      "(resources/fonts/derive_font.py --percent in the vendor "
                                      "tools)"_s
                                    : cure));
}

QList<Fits> MeasureAll(QList<ShownText> const& shown, WindowView& view)
{
    QList<Fits> fits(shown.size());
    for (int const dpi : {kMacosDpi, kOtherDpi}) {
        view.SetDpi(dpi);
        for (qsizetype i = 0; i < shown.size(); ++i) {
            (dpi == kMacosDpi ? fits[i].macos : fits[i].other) =
                shown[i].is_rich ? TextFit() : Measure(shown[i]);
        }
    }
    return fits;
}

// Of a bundle whose system is not known: on a Mac alone, all of the program's own texts fit.
bool AreFontsForMacos(QList<ShownText> const& shown, QList<Fits> const& fits)
{
    bool fit_others = true;
    for (qsizetype i = 0; i < shown.size(); ++i) {
        if (shown[i].IsOwn() && !fits[i].macos.fits) {
            return false;
        }
        fit_others = fit_others && (!shown[i].IsOwn() || fits[i].other.fits);
    }
    return !fit_others;
}

// What is cut off on systems that the bundle is probably not for.
void ReportElsewhere(QStringList const& texts, BundleSystem system, Findings& findings)
{
    if (texts.isEmpty()) {
        return;
    }
    auto const what =
        u"At %1 dpi, as on systems other than macOS, these texts would be cut off: %2."_s.arg(
            QString::number(kOtherDpi), QuoteAll(texts));
    if (system == BundleSystem::Macos) {
        findings.Note({}, what);
    } else {
        findings.Warn({}, what +
                              u" At %1 dpi, on a Mac, they fit. If the bundle is for another "
                              "system, use fonts with smaller letters."_s.arg(kMacosDpi));
    }
}

void CheckFits(QList<ShownText> const& shown, BundleSystem system, WindowView& view,
               Findings& findings)
{
    auto const fits = MeasureAll(shown, view);
    bool const is_for_macos = system == BundleSystem::Macos ||
                              (system == BundleSystem::Unknown && AreFontsForMacos(shown, fits));
    QStringList cut_elsewhere;
    for (qsizetype i = 0; i < shown.size(); ++i) {
        auto const& [macos, other] = fits[i];
        if (!macos.fits || (!is_for_macos && !other.fits)) {
            ReportCut(shown[i], fits[i], is_for_macos, findings);
        } else if (!other.fits) {
            cut_elsewhere.append(shown[i].text);
        }
    }
    ReportElsewhere(cut_elsewhere, system, findings);
    CheckSmallest(shown, is_for_macos ? kMacosDpi : kOtherDpi, view, findings);
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
                u"The text has %1 characters, far more than the window has room for; shorten it."_s
                    .arg(size));
        }
    }
    return are_short;
}

void CheckShownTexts(Config const& config, FontFiles const& fonts, BundleSystem system,
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
    CheckFits(shown, system, view, findings);
}

}  // namespace bundle_check
