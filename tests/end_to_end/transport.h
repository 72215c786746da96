// One update over any transport: a bundle, a simulated unit and the program between them.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>

#include "tests/end_to_end/program.h"
#include "tests/end_to_end/screens.h"
#include "tests/end_to_end/test_bundle.h"
#include "tests/support/unit_process.h"

class Transport : public testing::Test {
protected:
    using Condition = std::function<bool(Screen const&)>;

    // `staged_bundle`: the demonstration of this transport.
    explicit Transport(QString const& staged_bundle) : bundle_(staged_bundle) {}

    // What makes simulated_unit a unit that the bundle's firmware is meant for.
    virtual QStringList UnitOptions() const = 0;
    // What the window shows at the end of a whole update.
    virtual bool IsDoneScreen(Screen const& screen) const = 0;
    // After a whole update: its traces in the unit.
    virtual void ExpectUnitHoldsImage() = 0;
    // What the program runs in.
    virtual QProcessEnvironment Environment() const { return unit_->Environment(); }

    // The unit first, so that it is there when the program looks for the first time. It is one that
    // the bundle's firmware is meant for, unless `unit_options` say otherwise.
    void Start(QStringList const& unit_options = {});
    void PlugIn(QStringList const& unit_options = {});
    void StartProgram();

    // Waits for the button to become black and presses it.
    void StartUpdate();
    // The same, up to a whole update, whose traces in the unit are then looked at.
    void UpdateToTheEnd();
    void ExpectUpdateEnds();
    // By the program's log, every update since its start has ended exactly once, the last one with
    // `outcome`: "succeeded" or "failed".
    void ExpectOneOutcomeEach(QString const& outcome);

    // An update of a good unit in which this fault strikes after the button became black: it must
    // fail, and the program live on.
    void ExpectUpdateFailsWith(QString const& fault, QStringList const& unit_options = {});

    // Pulls the unit out, puts it back into its bootloader and plugs it in again.
    void Replug();

    void ExpectScreen(Condition const& condition,
                      std::chrono::milliseconds limit = std::chrono::seconds(20));
    // As ExpectScreen, but the screen must keep that state for the whole time.
    void ExpectScreenStays(Condition const& condition, std::chrono::milliseconds time);

    qsizetype CountInJournal(QString const& word);

    TestBundle bundle_;
    std::unique_ptr<UnitProcess> unit_;
    std::unique_ptr<Program> program_;
};
