// The findings of bundle_check and their two forms: text for a person, JSON for a build machine.
// Pure: it reads and prints nothing.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace bundle_check {

// A note is worth knowing and leaves the bundle clean; a warning is suspicious; an error keeps the
// updater from doing its work, or is plainly wrong before the customer's eyes.
enum class Severity { Note, Warning, Error };

// A place in config.ini. Either part may be missing: not everything is in that file.
struct Place {
    QString key;
    int line = 0;  // from 1; 0: none
};

struct Finding {
    Severity severity;
    Place place;
    QString text;  // one sentence or more, without control characters
};

// Collects findings. It keeps as many as a person can read; the rest are counted, also for the
// worst severity.
class Findings {
public:
    void Note(Place const& place, QString const& text);
    void Warn(Place const& place, QString const& text);
    void Fail(Place const& place, QString const& text);
    void Add(Severity severity, Place const& place, QString const& text);

    // Of what may be there while a product is prepared, but not in a package: a warning, or an
    // error once the findings are those of a package.
    Severity InPackage() const { return is_package_ ? Severity::Error : Severity::Warning; }
    void SetPackage(bool is_package) { is_package_ = is_package; }

    // In the order of their lines; those without a line come last.
    QList<Finding> Sorted() const;
    // How many were found, kept or not.
    int Count(Severity severity) const;
    int Omitted() const;

private:
    QList<Finding> kept_;
    int counts_[3] = {};
    bool is_package_ = false;
};

// `text` in single quotation marks, cut to what fits on a line. Line breaks and tabs are written as
// in config.ini, and what cannot be seen as its number, <U+001B>: it comes from files that may hold
// anything, and goes to a terminal.
QString Quote(QString const& text);

// The first items, separated by commas, and how many more there are.
QString JoinFirst(QStringList const& items);
// The same, each in quotation marks.
QString QuoteAll(QStringList const& texts);

// Its number in Unicode, as U+0041.
QString NameCharacter(char32_t character);

// How long an update of one product takes.
struct Prediction {
    QString product;  // as in product_list
    double seconds;   // from pressing the button to its end
};

struct Report {
    Findings findings;
    QList<Prediction> predictions;
    QString interface_name;  // as in config.ini; empty when it was not read
};

// 0 clean (notes do not count), 1 warnings, 2 errors.
int GetExitStatus(Report const& report);

// One finding per line, "config.ini:LINE: SEVERITY: KEY: TEXT", then one prediction per product and
// a summary.
QString FormatText(Report const& report);

// An object with the members status, interface, findings (each with severity, key, line and text),
// omitted and predictions (each with product and seconds). A missing key or line is null.
QByteArray FormatJson(Report const& report);

}  // namespace bundle_check
