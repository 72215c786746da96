// Conversations with the simulated system bootloader: requests and answers are bytes in
// hexadecimal.
#pragma once

#include <string>
#include <utility>

#include "simulator/bootloaders/stm32_bootloader.h"
#include "tests/simulator/conversation.h"

namespace simulator::test {

inline Stm32Bootloader MakeSynchronised(Stm32BootloaderOptions options = {})
{
    Stm32Bootloader unit(std::move(options));
    Ask(unit, "7F");
    return unit;
}

inline void ExpectHexConversation(Stm32Bootloader& unit, std::string const& conversation)
{
    ExpectConversation(unit, conversation,
                       [&](std::string const& request) { return ToHex(Ask(unit, request)); });
}

}  // namespace simulator::test
