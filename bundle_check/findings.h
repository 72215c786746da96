// What is to be said about a bundle: plain sentences, each with its weight and its place.
#pragma once

#include <QList>
#include <QString>

namespace bundle_check {

// A note is worth knowing and leaves the bundle clean; a warning is suspicious; an error keeps the
// updater from doing what it is for.
enum class Severity { Note, Warning, Error };

// Where in config.ini. Both parts may be missing: not everything stands in that file.
struct Place {
    QString key;
    int line = 0;  // from 1; 0: none
};

struct Finding {
    Severity severity;
    Place place;
    QString text;  // one sentence or more, without control characters
};

// Collects findings. Only so many are kept that a person can read them; the rest are counted, and
// count for the worst severity too.
class Findings {
public:
    void Note(Place const& place, QString const& text);
    void Warn(Place const& place, QString const& text);
    void Fail(Place const& place, QString const& text);

    // In the order of their lines; those without a line come last.
    QList<Finding> Sorted() const;
    // How many were found, kept or not.
    int Count(Severity severity) const;
    int Omitted() const;

private:
    void Add(Severity severity, Place const& place, QString const& text);

    QList<Finding> kept_;
    int counts_[3] = {};
};

// `text` in quotation marks, cut to what fits a line, with everything unprintable replaced: it
// comes from files that may hold anything, and goes to a terminal.
QString Quote(QString const& text);

}  // namespace bundle_check
