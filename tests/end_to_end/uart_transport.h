// One update over the UART road.
#pragma once

#include "config/startup_config.h"
#include "tests/end_to_end/transport.h"

class UartRoad : public Road {
protected:
    UartRoad();

    QStringList UnitOptions() const override;
    bool IsDoneScreen(Screen const& screen) const override { return IsDone(screen); }
    void ExpectUnitHoldsImage() override;

    void ExpectNothingErasedOrWritten();
    UartConfig Config() const;
};
