// One random walk: a simulated unit, the finished program with its window on this process's screen,
// and a seed that decides what happens to both. What must hold is checked all the time; each round
// ends with a good unit that is plugged in anew and must be found and updated.
//
// These outcomes are permitted, since they are documented limits:
// - Over UART, a port that cannot be opened ends the program with status 1, if it is away or
// blocked,
//   or was so a second ago. The program is then started again.
// - Two units at once, while none is ready, end the search for good. The program is then closed and
//   started again.
// - A second press counts if a connect has enabled the button in the meantime. The log shows that.
// - A connect that takes too long is followed by the next one, which ends its session. A fresh unit
//   is therefore plugged in only when all requests of the round have been answered.
// - The error text of a failed update stays in the bar until a unit is unplugged or, over UART, the
//   next update starts. The screen is compared with the table of the window's states.
// - A process whose window was closed goes on until its update has ended.
#pragma once

#include <QElapsedTimer>
#include <QStringList>
#include <QWidget>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>

#include "tests/end_to_end/bundle_unit.h"
#include "tests/end_to_end/program.h"
#include "tests/random_walk/machine_load.h"
#include "tests/random_walk/steps.h"
#include "tests/random_walk/window_log.h"

// What all walks of a test did, for its report.
struct WalkTotals {
    std::map<QString, int> counts;  // of rounds, presses, events of the window and more, by name
    double highest_load_factor = 1;
    double highest_thread = 0;                          // part of a processor
    std::chrono::milliseconds longest_silent_update{};  // without a sign from the unit

    QString ToText() const;
};

// Something that must not be. The text has all that is known about it.
class WalkFailure : public std::runtime_error {
    using runtime_error::runtime_error;
};

class Walk {
public:
    // Throws WalkFailure when the program does not start; so do the next two when something is not
    // as it must be.
    Walk(QString const& staged_bundle, uint32_t seed, WalkTotals& totals);
    ~Walk();  // ends the program, then the unit

    void PlayRound();
    // Closes the window and waits until the process has ended.
    void End();

private:
    using Milliseconds = std::chrono::milliseconds;
    enum class Phase { kRunning, kClosing };

    void Play(Step const& step);
    void Command(QString const& command);
    void Press(int times);
    void CloseWindow();
    // Until the program has ended, or that is true. Without a limit, the check of each moment
    // bounds it.
    void PassUntil(std::function<bool()> const& is_true,
                   Milliseconds limit = std::chrono::hours(1));
    void Recover();
    bool TryFreshUnit();
    void WriteNewImage();
    void UpdateFreshUnit();
    void CheckFreshUnit(QStringList const& journal_before, QString const& unerased_before);

    void StartProgram();
    void EnsureProgram();
    void TakeEndOfProgram();
    void AddToTotals();
    bool IsPortOpenable(QString const& name);

    // Lets time pass and checks what must hold at any moment.
    void Pass(Milliseconds time);
    void Check();
    void ReadLog();
    void CheckEndComesInTime();
    void CheckWindowAnswers();
    QString ReadUnitActivity();
    // Waits for what must become true within the limit, stretched by the machine's load.
    void Require(QString const& what, std::function<bool()> const& is_true, Milliseconds limit);
    void RequireScreen(QString const& what, std::function<bool(Screen const&)> const& condition);
    bool ShowsWhatTheLogSays(Screen const& screen) const;

    void Note(QString const& text);
    [[noreturn]] void Fail(QString const& what);

    TestBundle bundle_;
    uint32_t seed_;
    Random random_;
    WalkTotals& totals_;
    targetInterfaceType type_;
    QString options_;
    QTemporaryDir temporary_;
    QElapsedTimer clock_;
    QStringList notes_;  // what happened, with times

    std::unique_ptr<UnitProcess> unit_;
    QString first_name_;
    QString other_name_;
    bool is_blocked_ = false;
    qint64 last_unit_change_ = 0;  // of its connection, by clock_

    std::unique_ptr<Program> program_;  // after unit_: it must end first
    Phase phase_ = Phase::kRunning;
    bool is_ended_ = true;
    bool has_appeared_ = false;  // its window
    bool is_covered_ = false;
    qint64 last_answer_ = 0;   // of the window, by clock_
    bool is_overdue_ = false;  // what must end has not, and is reported
    int presses_ = 0;          // of this program
    pid_t process_ = 0;
    WindowLog log_;
    qsizetype log_size_ = 0;
    QString activity_;
    qint64 last_activity_ = 0;  // of the unit or the window, by clock_
    qint64 last_event_ = 0;     // of the window
    qint64 last_rest_ = 0;      // without an update

    QWidget cover_;
    LoadMeter load_;
    SpinWatch spin_watch_;
};
