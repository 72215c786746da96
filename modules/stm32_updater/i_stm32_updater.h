// The interface of an updater engine for STM32 microcontrollers, beyond writing an image. There is
// one implementation over the UART bootloader (stm32_uart_updater.h) and one over USB DFU
// (stm32_dfu_util_updater.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "modules/stm32_updater/i_fw_updater.h"

class IStm32Updater : public IFwUpdater {
public:
    // The number of this microcontroller within its unit, stamped into the image's trailer. It is
    // not the chip's product ID.
    virtual uint8_t GetMcuId() const = 0;

    // Writes the boot-mode marker at `boot_mode_address` and jumps to `start_address`. Failures are
    // logged, not returned: the image is already written by then.
    virtual void ExitDfu(unsigned start_address, unsigned boot_mode_address) = 0;

    // Reads `size` bytes of the one-time-programmable area; empty on failure.
    virtual std::vector<std::byte> GetOtp(unsigned address, unsigned long size) = 0;

    // Opens a session with the unit's bootloader; false when its answers are missing or wrong.
    virtual bool ConnectDevice() = 0;

    // Ends the session on this side of the line only; sends nothing.
    virtual void DisconnectDevice() = 0;
};
