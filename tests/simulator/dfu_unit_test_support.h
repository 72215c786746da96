// A simulated unit in its DFU bootloader for tests; its model is 7.
#pragma once

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

}  // namespace simulator::test
