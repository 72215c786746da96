#include "tests/random_walk/walk.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QScreen>
#include <algorithm>
#include <cstdio>
#include <sstream>

#include "mcuboot/limits.h"
#include "modules/stm32_updater/limits.h"
#include "tests/end_to_end/screens.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// How often what must always hold is checked.
constexpr std::chrono::milliseconds kStep = 40ms;
// For a window to show a state or to go, and to be painted again.
constexpr std::chrono::milliseconds kWindowLimit = 10s;
constexpr std::chrono::milliseconds kPaintLimit = 3s;
// How often a running program must show that its window answers.
constexpr std::chrono::milliseconds kAnswerPeriod = 1500ms;
// A look every 4 seconds at most, and a connect.
constexpr std::chrono::milliseconds kFoundLimit = 12s;
// No connect is under way any more: one on a port that is gone ends within its first time-out.
constexpr std::chrono::milliseconds kQuiet = 3s;

// However lively the unit is: the image takes 6 seconds at the slowest pace, and each of some
// faults may delay it by 10.
constexpr std::chrono::milliseconds kLongestUpdate = 3min;

// How long an update may go on without a sign from the unit, plus a second. The time-outs of
// MCUboot count waits, and one that should take 3 ms takes up to 5.
std::chrono::milliseconds GetSilenceLimit(targetInterfaceType type)
{
    return 1s + (type == TargetUart
                     ? std::chrono::milliseconds(stm32_updater::kExtendedEraseTimeout)
                     : mcuboot::kFirstChunkTimeout / mcuboot::kPass * (mcuboot::kPass + 2ms));
}

qsizetype CountUpdates(QStringList const& journal, targetInterfaceType type)
{
    return journal.filter(type == TargetUart ? u"erase"_s : u"keys=data,off,len"_s).size();
}

}  // namespace

QString WalkTotals::ToText() const
{
    QString text;
    for (auto const& [name, count] : counts) {
        text += u"%1: %2, "_s.arg(name).arg(count);
    }
    return text +
           u"longest silence in an update %1 ms, busiest thread %2 of a processor, waits up "
           "to %3 times too long"_s.arg(longest_silent_update.count())
               .arg(highest_thread, 0, 'f', 2)
               .arg(highest_load_factor, 0, 'f', 2);
}

// ---- Beginning and end ----

Walk::Walk(QString const& staged_bundle, uint32_t seed, WalkTotals& totals)
    : bundle_(staged_bundle),
      seed_(seed),
      random_(seed),
      totals_(totals),
      type_(GetTransport(bundle_)),
      options_(ChooseUnitOptions(random_, type_))
{
    clock_.start();
    ++totals_.counts[u"walks"_s];
    Note(u"unit: "_s + options_);
    WriteNewImage();
    unit_ = std::make_unique<UnitProcess>(GetUnitOptions(bundle_) +
                                          options_.split(u' ', Qt::SkipEmptyParts));
    first_name_ = unit_->Property(u"port"_s).section(u'/', -1);
    // A process has two names; this is neither.
    other_name_ = u"ttyUSB%1"_s.arg(1'000'001 + 2 * QCoreApplication::applicationPid());
    cover_.setWindowFlags(Qt::Window | Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint |
                          Qt::WindowDoesNotAcceptFocus);
    cover_.setGeometry(QGuiApplication::primaryScreen()->geometry());
    StartProgram();
}

Walk::~Walk()
{
    if (!is_ended_) {
        AddToTotals();
    }
}

void Walk::PlayRound()
{
    ++totals_.counts[u"rounds"_s];
    Note(u"---- a round"_s);
    for (auto const& step : ChooseSteps(random_, type_, first_name_, other_name_)) {
        EnsureProgram();
        Play(step);
    }
    Recover();
}

void Walk::End()
{
    EnsureProgram();
    CloseWindow();
    PassUntil([] { return false; });
}

// ---- Steps ----

void Walk::Play(Step const& step)
{
    ++totals_.counts[u"steps"_s];
    Note(Describe(step));
    switch (step.kind) {
        case Step::Kind::kUnit:
            Command(step.command);
            break;
        case Step::Kind::kPress:
            Press(step.times);
            break;
        case Step::Kind::kClose:
            CloseWindow();
            break;
        case Step::Kind::kWaitEvent: {
            auto const events = log_.events;
            PassUntil([&] { return log_.events != events; }, 5s);
            break;
        }
        case Step::Kind::kWaitReady:
            PassUntil(
                [this] {
                    return phase_ == Phase::kClosing ||
                           (log_.unit_ready && log_.shown.button_enabled == true);
                },
                8s);
            break;
    }
    Pass(step.pause);
}

void Walk::Command(QString const& command)
{
    static QRegularExpression const connection(u"^(plug|unplug|fade|block)"_s);
    auto const answer = unit_->Ask(command);
    // To block a port that is not there does nothing.
    if (!answer.startsWith(u"ok"_s) && answer != u"error not plugged in"_s) {
        Fail(u"the unit answers %1 with %2"_s.arg(command, answer));
    }
    if (connection.match(command).hasMatch()) {
        last_unit_change_ = clock_.elapsed();
        if (command.startsWith(u"plug 1"_s) || command == u"block off"_s) {
            is_blocked_ = false;
        } else if (command == u"block on"_s) {
            is_blocked_ = answer.startsWith(u"ok"_s);
        }
    }
    last_activity_ = clock_.elapsed();
}

void Walk::Press(int times)
{
    if (phase_ == Phase::kClosing || is_ended_) {
        return;
    }
    // In pairs, which come 30 ms apart.
    for (int left = times; left > 0; left -= 2) {
        if (left > 1) {
            program_->DoublePressUpdate();
        } else {
            program_->PressUpdate();
        }
    }
    presses_ += times;
    totals_.counts[u"presses"_s] += times;
}

void Walk::CloseWindow()
{
    if (phase_ == Phase::kClosing || is_ended_) {
        return;
    }
    program_->CloseWindow();
    phase_ = Phase::kClosing;
    ++totals_.counts[u"windows closed"_s];
    last_activity_ = clock_.elapsed();
    Require(
        u"the window goes when it is closed"_s,
        [this] { return is_ended_ || !program_->HasWindow(); }, kWindowLimit);
}

void Walk::PassUntil(std::function<bool()> const& is_true, Milliseconds limit)
{
    auto const end = clock_.elapsed() + limit.count();
    while (!is_ended_ && !is_true() && clock_.elapsed() < end) {
        Pass(kStep);
    }
}

// ---- What must be possible after any steps ----

void Walk::Recover()
{
    Note(u"---- the faults are cleared and a fresh unit is plugged in"_s);
    for (auto const* command : {"clear-faults", "silent off", "unplug 2", "unplug 1"}) {
        Command(QString::fromLatin1(command));
    }
    // A connect that is still under way ends a program whose port is gone: a documented limit.
    constexpr int kAttempts = 3;
    for (int attempt = 1; !TryFreshUnit(); ++attempt) {
        if (attempt == kAttempts) {
            Fail(u"the program has ended again and again without a unit"_s);
        }
    }
    UpdateFreshUnit();
}

// False if the program has ended in a permitted way before the unit was plugged in.
bool Walk::TryFreshUnit()
{
    if (phase_ == Phase::kClosing) {
        PassUntil([] { return false; });
    }
    EnsureProgram();
    Require(
        u"the program notices that there is no unit, and comes to rest"_s,
        [this] {
            return is_ended_ || (!log_.unit_ready && !log_.IsBusy() &&
                                 clock_.elapsed() - last_event_ > kQuiet.count());
        },
        GetSilenceLimit(type_) + kFoundLimit + kQuiet);
    if (is_ended_) {
        return false;
    }
    if (log_.may_have_stopped_looking) {
        Note(u"two units have ended the search: the program is restarted"_s);
        ++totals_.counts[u"searches that two units ended"_s];
        End();
        EnsureProgram();
    }
    RequireScreen(u"the window shows that there is no unit"_s,
                  [](Screen const& screen) { return !IsReady(screen); });
    return true;
}

// Unlike the last one, so that what is left of an earlier update is not taken for this one.
void Walk::WriteNewImage()
{
    QByteArray image(ChooseImageSize(random_), '\0');
    std::ranges::generate(image, [this] { return static_cast<char>(random_.Below(256)); });
    bundle_.WriteFirmware(image);
    Note(u"the image now has %1 bytes"_s.arg(image.size()));
}

void Walk::UpdateFreshUnit()
{
    WriteNewImage();
    Command(u"plug 1 "_s + (random_.OneIn(2) ? first_name_ : other_name_));
    auto const is_found = [this] { return log_.unit_ready; };
    Require(u"a fresh unit is found"_s, is_found, kFoundLimit);
    RequireScreen(u"the window shows that a unit is ready"_s, IsReady);
    auto const journal = unit_->Journal();
    auto const unerased = unit_->Status(u"over-unerased"_s);
    auto const updates = log_.Started();
    Press(1 + random_.Below(3));
    Note(u"pressed"_s);
    auto const has_started = [&] { return log_.Started() > updates; };
    Require(u"an update starts"_s, has_started, kFoundLimit);
    // The check of each moment bounds the time without a sign from the unit.
    PassUntil([this] { return !log_.IsBusy(); });
    CheckFreshUnit(journal, unerased);
}

void Walk::CheckFreshUnit(QStringList const& journal_before, QString const& unerased_before)
{
    if (is_ended_ || log_.shown.button_text != u"DONE"_s) {
        Fail(u"the update of a fresh unit has not succeeded"_s);
    }
    RequireScreen(u"the window shows that the update has succeeded"_s,
                  [](Screen const& screen) { return screen.button == u"DONE"_s; });
    for (auto const& [name, expected, actual] : ReadUnitFacts(bundle_, *unit_)) {
        if (name == u"written unerased"_s) {
            // It counts all that the unit has been through.
            if (actual != unerased_before) {
                Fail(u"the update wrote flash that was not erased"_s);
            }
        } else if (actual != expected) {
            Fail(u"%1 of the unit is %2 and not %3"_s.arg(name, actual, expected));
        }
    }
    if (CountUpdates(unit_->Journal(), type_) != CountUpdates(journal_before, type_) + 1) {
        Fail(u"the unit was written more than once"_s);
    }
}

// ---- The program ----

void Walk::StartProgram()
{
    auto environment = unit_->Environment();
    environment.insert(u"TMPDIR"_s, temporary_.path());
    program_ = std::make_unique<Program>(bundle_, environment);
    process_ = FindChildProcess(QCoreApplication::applicationPid(), "firmware_updater");
    ++totals_.counts[u"programs"_s];
    phase_ = Phase::kRunning;
    is_ended_ = is_overdue_ = is_covered_ = has_appeared_ = false;
    presses_ = 0;
    log_ = {};
    log_size_ = 0;
    last_activity_ = last_event_ = last_rest_ = clock_.elapsed();
    Note(u"the program is started"_s);
    Require(
        u"the window appears"_s, [this] { return is_ended_ || program_->Look(); },
        2 * kWindowLimit);
    has_appeared_ = true;
}

// It may have been closed, or ended by a port that could not be opened.
void Walk::EnsureProgram()
{
    if (is_ended_) {
        StartProgram();
    }
}

// Called once for each program, when its process has ended.
void Walk::TakeEndOfProgram()
{
    is_ended_ = true;
    AddToTotals();
    auto const status = program_->WaitForExit(kWindowLimit);
    Note(u"the program has ended: %1"_s.arg(program_->DescribeEnd()));
    bool const is_closed = phase_ == Phase::kClosing && status == 0;
    bool const is_unopenable =
        type_ == TargetUart && status == 1 && !log_.unopenable_port.isEmpty();
    if (is_unopenable) {
        ++totals_.counts[u"ports that could not be opened"_s];
        if (IsPortOpenable(log_.unopenable_port)) {
            Fail(u"the program ended because of a port that can be opened"_s);
        }
    } else if (!is_closed) {
        Fail(u"the program ended unexpectedly"_s);
    }
}

void Walk::AddToTotals()
{
    for (auto const& [event, count] : log_.counts) {
        totals_.counts[GetEventName(event)] += count;
    }
    totals_.highest_load_factor = std::max(totals_.highest_load_factor, load_.Factor());
    totals_.highest_thread = std::max(totals_.highest_thread, spin_watch_.Highest());
}

// It has been there, under this name, for so long that the program cannot have missed it.
bool Walk::IsPortOpenable(QString const& name)
{
    if (clock_.elapsed() - last_unit_change_ < load_.Stretch(1s).count()) {
        return false;
    }
    return std::ranges::any_of(std::initializer_list<int>{1, 2}, [&](int unit) {
        auto const status = unit_->Ask(u"status %1"_s.arg(unit));
        return status.contains(u"plugged=yes"_s) && !(unit == 1 && is_blocked_) &&
               status.contains(u"port=/dev/%1 "_s.arg(name));
    });
}

// ---- What must hold at any moment ----

void Walk::Pass(Milliseconds time)
{
    auto const end = clock_.elapsed() + time.count();
    do {
        auto const left = Milliseconds(std::max<qint64>(end - clock_.elapsed(), 0));
        if (left > 0ms) {
            load_.Wait(std::min(left, kStep));
        }
        QCoreApplication::processEvents();
        Check();
    } while (clock_.elapsed() < end);
}

void Walk::Check()
{
    if (is_ended_) {
        return;
    }
    bool const is_running = program_->IsRunning();
    ReadLog();
    if (!is_running) {
        TakeEndOfProgram();
        return;
    }
    CheckEndComesInTime();
    if (auto const spinning = spin_watch_.Look(process_); !spinning.isEmpty()) {
        Fail(spinning);
    }
    CheckWindowAnswers();
}

// The X server keeps nothing of what is covered: only the program can paint it again.
void Walk::CheckWindowAnswers()
{
    auto const age = Milliseconds(clock_.elapsed() - last_answer_);
    if (phase_ == Phase::kClosing || is_covered_ || !has_appeared_ || age < kAnswerPeriod) {
        return;
    }
    is_covered_ = true;
    cover_.show();
    Require(
        u"a window of another program covers the updater's"_s,
        [this] { return is_ended_ || !program_->Look(); }, kWindowLimit);
    cover_.hide();
    Require(
        u"the window is painted again after it was covered"_s,
        [this] { return is_ended_ || program_->Look(); }, kPaintLimit);
    is_covered_ = false;
    last_answer_ = clock_.elapsed();
    ++totals_.counts[u"answers of a covered window"_s];
}

void Walk::ReadLog()
{
    auto const text = program_->ReadLog();
    if (text.size() == log_size_) {
        return;
    }
    log_size_ = text.size();
    auto const events = log_.events;
    log_ = ReadWindowLog(text, type_);
    if (!log_.contradiction.isEmpty()) {
        Fail(log_.contradiction);
    }
    if (log_.Requested() > presses_) {
        Fail(u"more updates were requested than the button was pressed"_s);
    }
    if (log_.events != events) {
        last_event_ = last_activity_ = clock_.elapsed();
        Note(u"        window: "_s + log_.last_event);
    }
}

// An update, and a process whose window was closed, end some time after the last sign from the
// unit.
void Walk::CheckEndComesInTime()
{
    bool const is_closing = phase_ == Phase::kClosing;
    auto const now = clock_.elapsed();
    if (!log_.IsUpdating() && !is_closing) {
        last_rest_ = now;
    }
    if (last_rest_ == now || is_overdue_) {
        return;
    }
    if (auto const activity = ReadUnitActivity(); activity != activity_) {
        activity_ = activity;
        last_activity_ = now;
    }
    auto const silence = Milliseconds(now - last_activity_);
    if (is_closing) {
        is_overdue_ = silence > load_.Stretch(GetSilenceLimit(type_) + kFoundLimit);
    } else {
        totals_.longest_silent_update = std::max(totals_.longest_silent_update, silence);
        is_overdue_ = silence > load_.Stretch(GetSilenceLimit(type_));
    }
    is_overdue_ = is_overdue_ || now - last_rest_ > load_.Stretch(kLongestUpdate).count();
    if (is_overdue_) {
        Require(
            is_closing ? u"the process ends after its window was closed"_s
                       : u"an update ends in time"_s,
            [&] { return is_ended_ || !(is_closing || log_.IsUpdating()); }, 0ms);
    }
}

// Changes with each command that a unit carries out and with each fault that strikes.
QString Walk::ReadUnitActivity()
{
    static QRegularExpression const counts(u"(connects|erased|writes|fault-strikes|stored)=\\S+"_s);
    QString activity;
    for (auto const& match : counts.globalMatch(unit_->Ask(u"status 1"_s))) {
        activity += match.captured() + u' ';
    }
    return activity;
}

void Walk::Require(QString const& what, std::function<bool()> const& is_true, Milliseconds limit)
{
    auto const start = clock_.elapsed();
    auto const has_become_true = [&](Milliseconds bound) {
        while (!is_true()) {
            if (clock_.elapsed() - start > load_.Stretch(bound).count()) {
                return false;
            }
            Pass(kStep);
        }
        return true;
    };
    if (has_become_true(limit)) {
        return;
    }
    // What comes late may be the machine's fault; what never comes is not.
    auto const limit_text = u"%1 ms"_s.arg(load_.Stretch(limit).count());
    constexpr auto kNever = 60s;
    if (has_become_true(limit + kNever)) {
        Fail(u"LATE (%1 ms instead of %2): %3"_s.arg(clock_.elapsed() - start)
                 .arg(limit_text, what));
    }
    Fail(u"STUCK (more than %1): %2"_s.arg(limit_text, what));
}

void Walk::RequireScreen(QString const& what, std::function<bool(Screen const&)> const& condition)
{
    Require(
        what,
        [&] {
            auto const screen = program_->Look();
            return screen && condition(*screen) && ShowsWhatTheLogSays(*screen);
        },
        kWindowLimit);
}

bool Walk::ShowsWhatTheLogSays(Screen const& screen) const
{
    return screen.button == log_.shown.button_text && screen.style == log_.shown.button_style &&
           screen.format == log_.shown.progress_format;
}

// ---- The report ----

void Walk::Note(QString const& text)
{
    notes_.append(u"%1 %2"_s.arg(clock_.elapsed(), 8).arg(text));
    if (qEnvironmentVariableIsSet("FW_WALK_NOTES")) {
        std::puts(qPrintable(notes_.constLast()));
        std::fflush(stdout);
    }
}

void Walk::Fail(QString const& what)
{
    auto const screen = program_->LastScreen();
    auto text = what + u"\nseed %1, after %2 ms; "_s.arg(seed_).arg(clock_.elapsed()) +
                load_.Describe() + u"\nunit: "_s + unit_->Ask(u"status 1"_s) + u"\nwalk (ms):\n"_s +
                notes_.join(u'\n') + u"\nlog:\n"_s + QString::fromUtf8(program_->ReadLog());
    auto stream = std::ostringstream();
    stream << screen.value_or(Screen{});
    throw WalkFailure((text + u"\nscreen last read: "_s).toStdString() + stream.str());
}
