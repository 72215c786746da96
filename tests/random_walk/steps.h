// The steps of a random walk: what happens to a unit and what its user does, in an order and with
// pauses that the seed alone decides. Pure.
#pragma once

#include <QList>
#include <QString>
#include <chrono>

#include "config/startup_config.h"
#include "tests/support/random.h"

struct Step {
    enum class Kind {
        kUnit,       // `command` to the simulated unit
        kPress,      // of the button, `times` times, whatever its colour
        kClose,      // the window
        kWaitEvent,  // until the window changes, for a few seconds at most
        kWaitReady,  // until a unit is ready, for some seconds at most
    };
    Kind kind;
    QString command{};
    int times = 1;
    std::chrono::milliseconds pause{};  // afterwards
};

QString Describe(Step const& step);

// Options of simulated_unit, divided by spaces: the pace of its line and how it answers.
QString ChooseUnitOptions(Random& random, targetInterfaceType type);

// Bytes of the image: small, so that faults strike anywhere in it, and a multiple of what every
// chip programs at once.
qsizetype ChooseImageSize(Random& random);

// A command that sets a fault. One that delays answers does not delay an update by more than some
// seconds.
QString ChooseFault(Random& random, targetInterfaceType type);

// `other_name`: a name that the unit's port may take instead of its first one, `first_name`.
QList<Step> ChooseSteps(Random& random, targetInterfaceType type, QString const& first_name,
                        QString const& other_name);
