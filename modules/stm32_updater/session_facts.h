// What the UART engine notices during a session, for whoever has to explain afterwards how it went.
// Plain data: the engine fills it in, and neither its course nor its printed texts depend on it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace stm32_updater {

struct SessionFacts {
    // Of the chip, as far as it has answered.
    std::optional<uint8_t> bootloader_version;  // as the chip has it: 0x31 is version 3.1
    std::optional<uint16_t> product_id;

    // Of the last Update.
    size_t image_size = 0;  // bytes, padding included
    size_t written = 0;     // bytes that the bootloader has acknowledged
    std::optional<std::chrono::milliseconds> erase_time;  // none: it did not begin
    std::optional<std::chrono::milliseconds> write_time;  // the same
    unsigned refused_blocks = 0;                          // repeats included

    // The longest that an answer took to come, counted from the last byte sent, and the request.
    std::string slowest_request;
    std::optional<std::chrono::milliseconds> slowest_answer;  // none: nothing was answered

    // Why the last operation failed, as a sentence: which request, to which address, what was
    // expected, what came instead and how long it took. Empty while none has failed.
    std::string failure;
};

}  // namespace stm32_updater
