// A simulated unit in its DFU bootloader for tests from its host's side.
#pragma once

#include <memory>

#include "simulator/chips/otp_image.h"
#include "simulator/simulated_unit.h"

namespace simulator::test {

inline SimulatedUnitOptions DfuOptions()
{
    DfuseBootloaderOptions bootloader;
    OtpImage otp(bootloader.chip.otp_size);
    otp.SetModelId(0, 7);
    bootloader.otp = otp.Bytes();
    SimulatedUnitOptions options;
    options.bootloader = bootloader;
    return options;
}

// A unit that is plugged in.
struct PluggedDfuUnit {
    explicit PluggedDfuUnit(SimulatedUnitOptions const& options = DfuOptions())
        : testbed(std::make_shared<UsbTestbed>()), unit(testbed, options)
    {
        unit.Plug();
    }

    std::shared_ptr<UsbTestbed> testbed;
    SimulatedUnit unit;
};

}  // namespace simulator::test
