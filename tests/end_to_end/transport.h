// One update over any transport: a bundle, a simulated unit and the program between them.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <ostream>
#include <string>

#include "tests/end_to_end/bundle_unit.h"
#include "tests/end_to_end/program.h"
#include "tests/end_to_end/screens.h"
#include "tests/end_to_end/test_bundle.h"
#include "tests/support/unit_process.h"

// A row of a table of tests: a name and what it is about, such as a fault.
struct Row {
    char const* name;
    char const* value;

    friend void PrintTo(Row const& row, std::ostream* stream) { *stream << row.name; }
};

inline std::string NameOf(testing::TestParamInfo<Row> const& row)
{
    return row.param.name;
}

// `fault` is a command of the simulated unit's, such as "fault nack-erase 1"; `unit_options` are
// options of simulated_unit, divided by spaces.
class Transport : public testing::Test {
protected:
    // `staged_bundle`: the demonstration of this transport.
    explicit Transport(char const* staged_bundle) : bundle_(QString::fromUtf8(staged_bundle)) {}

    // What the window shows at the end of a whole update.
    virtual bool IsDoneScreen(Screen const& screen) const { return IsDone(screen); }

    // The unit first, so that it is there when the program looks for the first time. It is one that
    // the bundle's firmware is for, unless `unit_options` make it another.
    void Start(QString const& unit_options = {});
    void PlugIn(QString const& unit_options = {});
    void StartProgram();

    // Waits for the button to become black and presses it. PressUpdateWith() sets a fault before.
    void StartUpdate();
    void PressUpdateWith(QString const& fault);
    // The same, up to a whole update, whose traces in the unit are then compared.
    void UpdateToTheEnd();
    void ExpectUpdateEnds();
    // An update of a good unit in which this fault strikes once the button was pressed: it fails,
    // and the program lives on.
    void ExpectUpdateFailsWith(QString const& fault, QString const& unit_options = {});

    // Pulls the unit out, puts it back into its bootloader and plugs it in again.
    void Replug();

    void ExpectScreen(Program::Condition const& condition, Program::Limit limit = Program::kLimit);
    // The screen keeps that state for the whole time.
    void ExpectScreenStays(Program::Condition const& condition, Program::Limit time);

    void ExpectUnitHoldsImage();
    // Nothing was erased, written, uploaded or restarted.
    void ExpectUnitIsUntouched();
    // The program's log has this pattern once.
    void ExpectLogged(QString const& pattern) const;
    // By the program's log, every update since its start has ended exactly once, the last one with
    // `outcome`: "succeeded" or "failed".
    void ExpectOneOutcomeEach(QString const& outcome);

    // How many lines of the unit's journal have `word` in them.
    qsizetype CountInJournal(QString const& word);

    TestBundle bundle_;
    QTemporaryDir temporary_;  // the program's TMPDIR: the name of the OTP area's copy is fixed
    std::unique_ptr<UnitProcess> unit_;
    std::unique_ptr<Program> program_;
};

class UartTransport : public Transport {
protected:
    UartTransport() : Transport(FW_STAGED_BUNDLE) {}
};

class McubootTransport : public Transport {
protected:
    McubootTransport() : Transport(FW_STAGED_MCUBOOT_BUNDLE) {}

    bool IsDoneScreen(Screen const& screen) const override { return IsDoneWithoutText(screen); }
};

class UsbTransport : public Transport {
protected:
    UsbTransport() : Transport(FW_STAGED_USB_BUNDLE) {}

    // Whatever the bar's text: a tool that is done before the program's first look at its output
    // leaves "Erasing" there.
    bool IsDoneScreen(Screen const& screen) const override
    {
        return screen.button == QLatin1String("DONE") && screen.progress == 100;
    }
};
