// Makes the recordings of this folder anew: the staged program updates simulated units, and the
// records of its sessions go to a folder.
//   make_recordings FOLDER [NAME...]
// It needs a screen with a window manager; docs/recipes.md has the command.

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>
#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "tests/end_to_end/bundle_unit.h"
#include "tests/end_to_end/program.h"
#include "tests/end_to_end/screens.h"
#include "tests/end_to_end/test_bundle.h"
#include "tests/end_to_end/window_reader.h"
#include "tests/support/pattern_image.h"
#include "tests/support/unit_process.h"

using namespace Qt::StringLiterals;

namespace {

// What the window shows at the end of a session; kNothing: it goes on waiting.
enum class End { kDone, kFailed, kRefused, kNothing };

struct RecordingRow {
    char const* name;
    char const* bundle;
    char const* unit_options;  // of simulated_unit, beside those that the bundle asks for
    char const* early_fault;   // a command of the unit's, before the program starts
    char const* late_fault;    // one before the button is pressed
    End end;
};

constexpr char const* kUart = FW_STAGED_BUNDLE;
constexpr char const* kMcuboot = FW_STAGED_MCUBOOT_BUNDLE;
constexpr char const* kUsb = FW_STAGED_USB_BUNDLE;

constexpr std::array kRecordingRows{
    RecordingRow{"uart-done", kUart, "", "", "", End::kDone},
    RecordingRow{"uart-other-model", kUart, "--model-id 222", "", "", End::kRefused},
    RecordingRow{"uart-block-refused-twice", kUart, "", "", "fault nack-write-data 3 2",
                 End::kDone},
    RecordingRow{"uart-block-refused", kUart, "", "", "fault nack-write-data 3 11", End::kFailed},
    RecordingRow{"uart-erase-refused", kUart, "", "", "fault nack-erase", End::kFailed},
    RecordingRow{"uart-silent-in-write", kUart, "", "", "fault silent-in-write 3", End::kFailed},
    RecordingRow{"uart-cut-answer", kUart, "", "fault cut-answer 2 99 5", "", End::kNothing},
    RecordingRow{"uart-slow-erase", kUart, "", "", "fault late-answer 5 1 2000", End::kDone},
    RecordingRow{"uart-chatty", kUart, "", "", "fault extra-byte 6 1 65", End::kFailed},
    RecordingRow{"mcuboot-done", kMcuboot, "", "", "", End::kDone},
    RecordingRow{"mcuboot-other-model", kMcuboot, "--model-id 222", "", "", End::kRefused},
    RecordingRow{"mcuboot-error-in-upload", kMcuboot, "", "", "fault error-in-upload 2 1 7",
                 End::kFailed},
    RecordingRow{"mcuboot-error-code", kMcuboot, "", "fault error-code 1 99 8", "", End::kNothing},
    RecordingRow{"mcuboot-silent-in-write", kMcuboot, "", "", "fault silent-in-write 3",
                 End::kFailed},
    RecordingRow{"mcuboot-cut-answer", kMcuboot, "", "", "fault cut-answer 2 1 10", End::kFailed},
    RecordingRow{"mcuboot-slow-erase", kMcuboot, "", "", "fault late-answer 1 1 4000", End::kDone},
    RecordingRow{"mcuboot-chatty", kMcuboot, "", "fault foreign-line-before 1 99",
                 "fault foreign-line-after 1 99", End::kDone},
    RecordingRow{"mcuboot-offset-asked-for-again", kMcuboot, "", "", "fault keep-offset 2 1",
                 End::kDone},
    RecordingRow{"usb-done", kUsb, "", "", "", End::kDone},
    RecordingRow{"usb-other-model", kUsb, "--model-id 222", "", "", End::kRefused},
    RecordingRow{"usb-error-in-write", kUsb, "", "", "fault error-in-write 2 1 3", End::kDone},
    RecordingRow{"usb-slow-erase", kUsb, "", "", "fault slow-erase 1 1 2000", End::kDone},
};

constexpr qsizetype kImageSize = 4000;  // three chunks, or sixteen blocks

bool IsEnd(End end, Screen const& screen)
{
    switch (end) {
        case End::kDone:
            return screen.button == u"DONE"_s && screen.progress == 100;
        case End::kFailed:
            return IsFailed(screen);
        case End::kRefused:
            return IsRefused(screen);
        case End::kNothing:
            break;
    }
    return false;
}

void Reach(Program& program, char const* state, Program::Condition const& condition)
{
    constexpr Program::Limit kReachLimit{60000};
    if (!program.WaitFor(condition, kReachLimit)) {
        throw std::runtime_error(std::string("the window does not show: ") + state + "\n" +
                                 program.ReadLog().toStdString());
    }
}

QStringList ListFinished(QDir const& sessions)
{
    return sessions.entryList({u"*-*-*T*-*-*Z-*-*.pcapng"_s}, QDir::Files, QDir::Name);
}

// Leaves the program's log and its records in `directory`.
void RunSession(RecordingRow const& row, QString const& directory, QDir const& sessions)
{
    TestBundle bundle(QString::fromUtf8(row.bundle));
    bundle.WriteFirmware(PatternImage<QByteArray>(kImageSize));
    UnitProcess unit(GetUnitOptions(bundle) +
                     QString::fromUtf8(row.unit_options).split(u' ', Qt::SkipEmptyParts));
    if (*row.early_fault != '\0') {
        unit.Command(QString::fromUtf8(row.early_fault));
    }
    auto environment = unit.Environment();
    environment.insert(u"TMPDIR"_s, directory);
    Program program(bundle, environment, directory);
    if (row.end == End::kNothing) {
        WaitUntil([&] { return !ListFinished(sessions).isEmpty(); }, Program::kLimit);
        return;
    }
    if (row.end != End::kRefused) {
        Reach(program, "ready", IsReady);
        if (*row.late_fault != '\0') {
            unit.Command(QString::fromUtf8(row.late_fault));
        }
        program.PressUpdate();
    }
    Reach(program, "the end", [&](Screen const& screen) { return IsEnd(row.end, screen); });
    program.CloseWindow();
    program.WaitForExit();
}

void Make(RecordingRow const& row, QDir const& folder)
{
    QTemporaryDir const temporary;
    QDir const sessions(temporary.filePath(u"kelvane-firmware-updater/sessions"_s));
    RunSession(row, temporary.path(), sessions);
    auto const found = ListFinished(sessions);
    if (found.isEmpty()) {
        throw std::runtime_error("no record was left");
    }
    auto const path = folder.filePath(QString::fromUtf8(row.name) + u".pcapng"_s);
    QFile::remove(path);
    if (!QFile::copy(sessions.filePath(found.first()), path)) {
        throw std::runtime_error("cannot write " + path.toStdString());
    }
    std::printf("%s: %s\n", row.name, qPrintable(found.first()));
}

}  // namespace

int main(int argc, char** argv)
{
    QApplication const application(argc, argv);
    DrawAsTheProgramDoes();
    auto const arguments = QApplication::arguments();
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: make_recordings FOLDER [NAME...]\n");
        return 2;
    }
    auto const names = arguments.mid(2);
    int failures = 0;
    for (auto const& row : kRecordingRows) {
        if (!names.isEmpty() && !names.contains(QString::fromUtf8(row.name))) {
            continue;
        }
        try {
            Make(row, QDir(arguments[1]));
        } catch (std::exception const& error) {
            std::fprintf(stderr, "%s: %s\n", row.name, error.what());
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}
