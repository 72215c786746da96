// One update over the UART road: a bundle, a simulated unit and the program between them.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "app/startup_config.h"
#include "tests/end_to_end/program.h"
#include "tests/end_to_end/screens.h"
#include "tests/end_to_end/test_bundle.h"
#include "tests/support/unit_process.h"

class UartRoad : public testing::Test {
protected:
    // The unit first, so that it is there when the program looks for the first time. It is one that
    // the bundle's firmware is meant for, unless `unit_options` say otherwise.
    void Start(QStringList const& unit_options = {});
    void PlugIn(QStringList const& unit_options = {});
    void StartProgram();

    // Waits for the button to become black, presses it and waits until the update has begun.
    void StartUpdate();
    // The same, up to a whole update, whose traces in the unit are then looked at.
    void UpdateToTheEnd();

    void ExpectScreen(bool (*condition)(Screen const&),
                      std::chrono::milliseconds limit = std::chrono::seconds(20));
    // As ExpectScreen, but the screen must keep that state for the whole time.
    void ExpectScreenStays(bool (*condition)(Screen const&), std::chrono::milliseconds time);

    void ExpectUnitHoldsImage();
    void ExpectNothingErasedOrWritten();
    qsizetype CountInJournal(QString const& word);
    UartConfig Config() const;

    TestBundle bundle_;
    std::unique_ptr<UnitProcess> unit_;
    std::unique_ptr<Program> program_;
};
