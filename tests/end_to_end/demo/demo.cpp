#include "tests/end_to_end/demo/demo.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "modules/stm32_updater/limits.h"
#include "tests/end_to_end/bundle_unit.h"
#include "tests/end_to_end/screens.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr Program::Limit kStateLimit = 60s;
constexpr Program::Limit kPersonLimit = 15min;
constexpr Program::Limit kReplayLimit = 10min;  // a slow line's whole update
constexpr qsizetype kLogLines = 15;

struct Row {
    targetInterfaceType transport;
    char const* name;
    char const* staged_bundle;
};

constexpr std::array kRows{Row{TargetUart, "uart", FW_STAGED_BUNDLE},
                           Row{TargetMcubootSerial, "mcuboot", FW_STAGED_MCUBOOT_BUNDLE},
                           Row{TargetUsb, "usb", FW_STAGED_USB_BUNDLE}};

Row const& RowOf(targetInterfaceType transport)
{
    return *std::ranges::find(kRows, transport, &Row::transport);
}

void Print(QString const& line)
{
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

void PrintResult(QString const& name, QString const& result)
{
    Print(u"%1 %2"_s.arg(name, -20).arg(result));
}

}  // namespace

targetInterfaceType FindTransport(QString const& name)
{
    auto const* const row = std::ranges::find(kRows, name.toStdString(), &Row::name);
    if (row == kRows.end()) {
        throw UsageError("unknown transport " + name.toStdString());
    }
    return row->transport;
}

Demo::Demo(DemoOptions options)
    : options_(std::move(options)),
      directory_(options_.directory),
      recorded_(options_.replay.isEmpty() ? std::nullopt
                                          : std::optional(ReadRecordedEnd(options_.replay))),
      bundle_(CopyBundle())
{
    if (recorded_ && recorded_->transport != options_.transport) {
        throw UsageError(std::string("the record is of the transport ") +
                         RowOf(recorded_->transport).name);
    }
    auto const actual = GetTransport(bundle_);
    if (actual != options_.transport) {
        auto const name = std::string(RowOf(actual).name);
        throw UsageError("by its config.ini the bundle is for the transport " + name +
                         ", not for " + RowOf(options_.transport).name + "; use --transport " +
                         name);
    }
    CheckBundle();
    if (recorded_) {
        if (auto const other = DescribeOtherImage(*recorded_, bundle_.ReadFirmware());
            !other.isEmpty()) {
            throw UsageError((other + u"; use --bundle"_s).toStdString());
        }
    }
    unit_ = MakeUnit();
}

TestBundle Demo::CopyBundle() const
{
    if (!directory_.mkpath(u"tmp"_s)) {
        throw std::runtime_error("cannot make " + directory_.path().toStdString());
    }
    for (auto const& name : directory_.entryList({u"*.png"_s, u"*.txt"_s}, QDir::Files)) {
        QFile::remove(directory_.filePath(name));
    }
    auto const staged = QString::fromUtf8(RowOf(options_.transport).staged_bundle);
    return {staged, options_.bundle.isEmpty() ? staged : options_.bundle,
            directory_.filePath(u"bundle"_s)};
}

void Demo::CheckBundle() const
{
    constexpr int kOnlyWarnings = 1;
    QProcess check;
    check.setProcessChannelMode(QProcess::MergedChannels);
    check.start(QStringLiteral(FW_BUNDLE_CHECK), {bundle_.Root()});
    if (!check.waitForFinished() || check.exitStatus() != QProcess::NormalExit) {
        throw std::runtime_error("bundle_check does not run");
    }
    auto const report = QString::fromUtf8(check.readAll()).trimmed();
    if (check.exitCode() != 0) {
        Print(report);
    }
    PrintResult(u"bundle check"_s, report.section(u'\n', -1));
    // A recorded session may have ended as it did because of such a bundle.
    if (check.exitCode() > kOnlyWarnings && !recorded_) {
        throw std::runtime_error("the bundle cannot be used");
    }
}

std::unique_ptr<UnitProcess> Demo::MakeUnit() const
{
    auto const journal = directory_.filePath(u"unit-journal.txt"_s);
    QFile::remove(journal);
    if (recorded_ && options_.transport != TargetUsb) {
        return std::make_unique<UnitProcess>(GetUnitOptions(bundle_) +
                                             QStringList{u"--units"_s, u"0"_s, u"--replay"_s,
                                                         options_.replay, u"--journal"_s, journal});
    }
    auto const options = QStringList{u"--units"_s,
                                     u"0"_s,
                                     u"--real-times"_s,
                                     u"--baud"_s,
                                     QString::number(Baud()),
                                     u"--journal"_s,
                                     recorded_ ? QProcess::nullDevice() : journal};
    return std::make_unique<UnitProcess>(GetUnitOptions(bundle_) + options);
}

unsigned Demo::Baud() const
{
    if (options_.baud || options_.transport == TargetUsb) {
        return options_.baud.value_or(0);
    }
    QSettings const settings(bundle_.ConfigPath(), QSettings::IniFormat);
    return options_.transport == TargetUart ? stm32_updater::kBaudRate
                                            : ReadMcubootConfig(settings).baud;
}

bool Demo::Run()
{
    auto environment = unit_->Environment();
    environment.insert(u"TMPDIR"_s, directory_.absoluteFilePath(u"tmp"_s));
    program_ = std::make_unique<Program>(bundle_, environment, directory_.absolutePath());
    bool as_expected = false;
    if (recorded_) {
        as_expected = ReplaySession();
    } else {
        options_.by_itself ? UpdateByItself() : UpdateByPerson();
        as_expected = CompareUnit();
    }
    if (options_.keep_open) {
        Print(u"Close the window to end."_s);
        WaitUntil([this] { return !program_->IsRunning(); }, Program::Limit::max());
    } else if (!options_.by_itself) {
        program_->WaitForExit(3s);  // for a person to see the end of it
    } else {
        // As a person would: a program that is killed leaves its session's record without an end.
        program_->CloseWindow();
        program_->WaitForExit(10s);
    }
    return as_expected;
}

void Demo::UpdateByItself()
{
    auto const is_done = [](Screen const& screen) {
        return screen.button == u"DONE"_s && screen.progress == 100;
    };
    Reach(u"waiting"_s, IsWaiting);
    PlugIn();
    Reach(u"ready"_s, IsReady);
    program_->PressUpdate();
    // A short update may be done before anyone looks.
    if (options_.transport == TargetUsb) {
        Reach(u"erasing"_s,
              [&](Screen const& screen) { return IsErasing(screen) || is_done(screen); });
    }
    Reach(u"updating"_s, [&](Screen const& screen) {
        return (IsUpdating(screen) && screen.progress >= 50) || is_done(screen);
    });
    Reach(u"done"_s, is_done);
}

void Demo::UpdateByPerson()
{
    Print(
        u"The window waits; the unit is plugged in in 3 seconds. Press UPDATE when it turns "
        "black."_s);
    program_->WaitForExit(3s);
    PlugIn();
    auto const is_updated = [this] { return unit_->Status(u"state"_s) == u"running"_s; };
    auto const has_failed = [this] { return program_->ReadLog().contains("update failed"); };
    WaitUntil([&] { return is_updated() || has_failed() || !program_->IsRunning(); }, kPersonLimit);
    if (is_updated()) {
        return;
    }
    if (!program_->IsRunning()) {
        throw Failure(u"the updater ended before the update, %1"_s.arg(program_->DescribeEnd()));
    }
    throw Failure(has_failed() ? u"the update failed"_s : u"nobody pressed UPDATE"_s);
}

void Demo::Reach(QString const& name, Program::Condition const& condition)
{
    bool has_failed = false;
    // At the pace of a slow line the whole image, with a margin for what surrounds its bytes.
    constexpr int kBitsOnLine = 15;
    auto const baud = Baud();
    auto const seconds =
        baud == 0 ? 0 : QFileInfo(bundle_.FirmwarePath()).size() * kBitsOnLine / baud;
    bool const reached = program_->WaitFor(
        [&](Screen const& screen) {
            has_failed = IsFailed(screen) || IsRefused(screen);
            return has_failed || condition(screen);
        },
        kStateLimit + std::chrono::seconds(seconds));
    auto const picture = directory_.filePath(
        u"%1-%2.png"_s.arg(++pictures_).arg(reached && !has_failed ? name : u"not-reached"_s));
    auto const has_picture = program_->SavePicture(picture);
    if (reached && !has_failed) {
        Print(name + u": "_s + picture);
        return;
    }
    auto const seen = has_picture ? u"; picture: "_s + picture : QString();
    if (has_failed) {
        throw Failure(u"the window shows a failure instead of \"%1\""_s.arg(name) + seen);
    }
    if (program_->HasWindow()) {
        throw Failure(u"the window is not \"%1\" in time"_s.arg(name) + seen);
    }
    // A program whose window is gone is about to end.
    program_->WaitForExit(1s);
    throw Failure(program_->IsRunning()
                      ? u"the updater's window was closed before it was \"%1\""_s.arg(name)
                      : u"the updater ended by itself, %1, before its window was \"%2\""_s.arg(
                            program_->DescribeEnd(), name));
}

std::runtime_error Demo::Failure(QString const& text) const
{
    auto const log = QString::fromUtf8(program_->ReadLog()).trimmed().split(u'\n');
    auto const end = log.mid(std::max<qsizetype>(0, log.size() - kLogLines));
    return std::runtime_error((text + u"\nThe end of its log, in "_s + directory_.path() +
                               u":\n    "_s + end.join(u"\n    "_s))
                                  .toStdString());
}

void Demo::PlugIn()
{
    if (recorded_ && options_.transport == TargetUsb) {
        WriteStandIn();
    } else {
        unit_->Command(u"plug"_s);
    }
}

// In the place of the tool that has found no unit until now.
void Demo::WriteStandIn() const
{
    auto const quote = [](QString text) {
        return u'\'' + text.replace(u"'"_s, u"'\\''"_s) + u'\'';
    };
    auto const script = u"#!/bin/sh\nexec %1 %2 1 %3 \"$@\"\n"_s.arg(
        quote(QStringLiteral(FW_REPLAYED_DFU_UTIL)), quote(options_.replay),
        quote(directory_.absoluteFilePath(u"unit-journal.txt"_s)));
    auto const next = bundle_.DfuUtil() + u".next"_s;
    WriteFile(next, script.toUtf8());
    QFile::setPermissions(next, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile::remove(bundle_.DfuUtil());
    QFile::rename(next, bundle_.DfuUtil());
}

bool Demo::ReplaySession()
{
    if (options_.by_itself) {
        Reach(u"waiting"_s, IsWaiting);
    } else {
        Print(u"The window waits; the recorded unit is plugged in in 3 seconds."_s +
              (recorded_->has_update ? u" Press UPDATE when it turns black."_s : QString()));
        program_->WaitForExit(3s);
    }
    PlugIn();
    auto const read_outcome = [this] { return FindOutcome(program_->ReadLog()); };
    auto const is_over = [&] {
        auto const outcome = read_outcome();
        bool const goes_on = recorded_->has_update && outcome == u"connected"_s;
        return (!outcome.isEmpty() && !goes_on) || !program_->IsRunning();
    };
    if (options_.by_itself && recorded_->has_update) {
        program_->WaitFor([&](Screen const& screen) { return IsReady(screen) || is_over(); },
                          kReplayLimit);
        if (!is_over()) {
            program_->PressUpdate();
        }
    }
    auto const is_over_in_time =
        WaitUntil(is_over, options_.by_itself ? kReplayLimit : kPersonLimit);
    if (options_.by_itself) {
        program_->SavePicture(directory_.filePath(u"%1-end.png"_s.arg(++pictures_)));
    }
    return PrintReplay(is_over_in_time ? read_outcome() : QString());
}

bool Demo::PrintReplay(QString const& outcome) const
{
    auto const name = [](QString const& text) { return text.isEmpty() ? u"no outcome"_s : text; };
    auto const journal = QString::fromUtf8(ReadFile(directory_.filePath(u"unit-journal.txt"_s)));
    auto const differences = journal.split(u'\n').filter(u"difference"_s);
    for (auto const& line : differences) {
        PrintResult(u"unit"_s, line);
    }
    PrintResult(u"recorded"_s, name(recorded_->outcome));
    PrintResult(u"replayed"_s, name(outcome));
    bool const is_same = outcome == recorded_->outcome && differences.isEmpty();
    Print(is_same ? u"The session ended as recorded."_s
                  : u"FAILED: the session did not go as recorded."_s);
    return is_same;
}

bool Demo::CompareUnit()
{
    auto const facts = ReadUnitFacts(bundle_, *unit_);
    qsizetype differences = 0;
    for (auto const& [name, expected, actual] : facts) {
        if (actual == expected) {
            PrintResult(name, u"as expected: "_s + actual);
        } else {
            PrintResult(name, u"DIFFERS: %1 instead of %2"_s.arg(actual, expected));
            ++differences;
        }
    }
    Print(differences == 0 ? u"The unit was updated and holds what it must."_s
                           : u"FAILED: %1 of %2 differ"_s.arg(differences).arg(facts.size()));
    return differences == 0;
}
