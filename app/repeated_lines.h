// Holds back lines that repeat themselves: a silent unit brings the same two lines every four
// seconds, for as long as it is attached. Pure.
#pragma once

#include <QString>
#include <QStringList>

// Not thread-safe.
class RepeatedLines {
public:
    // The longest group of lines that is recognised when it repeats itself.
    static constexpr qsizetype kLongestGroup = 4;

    // The lines to write now that `line` has come. A group of lines is written twice; then it is
    // counted until another line comes, which its count precedes.
    QStringList Take(QString const& line);

    // The count that no other line has brought out; empty if there is none.
    QString Finish();

private:
    bool Repeats(qsizetype group) const;

    QStringList recent_;   // the newest last, up to two groups
    qsizetype group_ = 0;  // lines of the group that repeats itself; 0: none does
    int held_back_ = 0;    // lines
};
