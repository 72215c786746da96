// One update of a simulated unit that anyone can watch: takes a bundle, starts the unit that its
// firmware is for, runs the bundle's updater and compares the unit with what it must hold
// afterwards. Prints what happens, one line each, and leaves its files in one directory.
#pragma once

#include <QDir>
#include <QString>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>

#include "config/startup_config.h"
#include "tests/end_to_end/demo/recorded_session.h"
#include "tests/end_to_end/program.h"
#include "tests/end_to_end/test_bundle.h"
#include "tests/support/unit_process.h"

struct DemoOptions {
    targetInterfaceType transport = TargetUart;
    QString bundle;  // the folder with Contents in it; empty: the transport's demonstration
    std::optional<unsigned> baud;  // of the unit's line; 0 takes no time; none: the transport's own
    QString directory;             // for files; its parent exists
    QString replay;          // a session's record, whose unit answers; empty: a unit that works
    bool by_itself = false;  // presses the button, and keeps pictures; else a person presses it
    bool keep_open = false;  // waits for a person to close the window at the end
};

// The options do not fit each other or the bundle.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The transport of that name: "uart", "mcuboot" or "usb". Throws UsageError.
targetInterfaceType FindTransport(QString const& name);

class Demo {
public:
    // Copies the bundle and starts its unit. Throws UsageError when the bundle is for another
    // transport, and std::runtime_error when it cannot be used.
    explicit Demo(DemoOptions options);

    // The update and the comparison. Throws std::runtime_error when the update does not come to its
    // end. Returns whether the unit holds what it must; of a replay, whether it ended as recorded.
    bool Run();

private:
    TestBundle CopyBundle() const;
    void CheckBundle() const;
    std::unique_ptr<UnitProcess> MakeUnit() const;
    unsigned Baud() const;

    void UpdateByItself();
    void UpdateByPerson();
    // Waits until the window shows `condition`, prints `name` and keeps a picture.
    void Reach(QString const& name, Program::Condition const& condition);
    // The unit appears on its host.
    void PlugIn();
    void WriteStandIn() const;

    // The session again with the unit that the record is of. Returns whether it ended as recorded.
    bool ReplaySession();
    bool PrintReplay(QString const& outcome) const;

    // What went wrong, with the end of the updater's log.
    std::runtime_error Failure(QString const& text) const;
    bool CompareUnit();

    DemoOptions options_;
    QDir directory_;
    std::optional<RecordedEnd> recorded_;  // with a replay only
    TestBundle bundle_;
    std::unique_ptr<UnitProcess> unit_;
    std::unique_ptr<Program> program_;
    int pictures_ = 0;
};
