// One update over the USB transport: the dfu-util that is installed on this machine writes to a
// simulated unit on a simulated bus.
#pragma once

#include <QTemporaryDir>

#include "config/startup_config.h"
#include "tests/end_to_end/transport.h"

class UsbTransport : public Transport {
protected:
    UsbTransport();

    QStringList UnitOptions() const override;
    // Whatever the bar's text: a tool that is done before the program's first look at its output
    // leaves "Erasing" there.
    bool IsDoneScreen(Screen const& screen) const override;
    void ExpectUnitHoldsImage() override;
    // With a temporary directory of its own: the name of the OTP area's copy there is fixed.
    QProcessEnvironment Environment() const override;

    QString OtpCopyPath() const;
    void ExpectNothingErasedOrWritten();
    // Selects the second of two units.
    void ExpectNoCommandToEitherUnit();
    // No download came to its end.
    void ExpectUnitIsStillInItsBootloader();
    UsbConfig Config() const;

private:
    QTemporaryDir temporary_;
};
