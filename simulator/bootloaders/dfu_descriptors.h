// The descriptors of a USB device in its DFU bootloader, which its host reads before any request of
// the bootloader's protocol (USB 2.0, chapter 9; DFU 1.1, chapter 4). Bytes only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/chips/chips.h"

namespace simulator {

struct UsbDfuIdentity {
    uint16_t vendor_id = 0x0483;
    uint16_t product_id = 0xDF11;
    std::string manufacturer = "STMicroelectronics";
    std::string product = "STM32  BOOTLOADER";
    std::string serial_number = "0001";
    // One text for each memory, in the order of the alternate settings: name and sectors, such as
    // "@Internal Flash  /0x08000000/256*0002Kg" (AN3156).
    std::vector<std::string> memories;
};

// The memories of a chip as the alternate settings name them: 0 flash, 1 option bytes, 2 OTP area.
std::vector<std::string> MakeMemoryNames(Chip const& chip);

// The device's descriptor and that of its one configuration, as a host keeps them.
std::vector<std::byte> MakeDescriptors(UsbDfuIdentity const& identity);

// String descriptor `index` in UTF-16; 0 is the list of languages. Empty when there is none.
std::vector<std::byte> MakeStringDescriptor(UsbDfuIdentity const& identity, unsigned index);

}  // namespace simulator
