// One update over the UART transport.
#pragma once

#include "config/startup_config.h"
#include "tests/end_to_end/transport.h"

class UartTransport : public Transport {
protected:
    UartTransport();

    QStringList UnitOptions() const override;
    bool IsDoneScreen(Screen const& screen) const override { return IsDone(screen); }
    void ExpectUnitHoldsImage() override;

    void ExpectNothingErasedOrWritten();
    UartConfig Config() const;
};
