// The simulated unit that a bundle's firmware is for, as config.ini describes it: the options that
// make it, and what a whole update leaves in it. For each transport.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include "config/startup_config.h"
#include "tests/end_to_end/test_bundle.h"
#include "tests/support/unit_process.h"

targetInterfaceType GetTransport(TestBundle const& bundle);

// Options of the program simulated_unit. Throws std::runtime_error when the bundle names no product
// or when no simulated chip has room for its image.
QStringList GetUnitOptions(TestBundle const& bundle);

// One thing that an update leaves in the unit, as text.
struct UnitFact {
    QString name;
    QString expected;
    QString actual;
};

// Reads them from a unit made with GetUnitOptions(). Throws std::runtime_error when the unit has no
// memory where the bundle says.
QList<UnitFact> ReadUnitFacts(TestBundle const& bundle, UnitProcess& unit);
