// The functions of for_firmware/unit_side.h, compiled as C11.
#ifndef TESTS_FOR_FIRMWARE_AS_C11_H
#define TESTS_FOR_FIRMWARE_AS_C11_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

uint8_t const* c11_find_otp_record(uint8_t const* otp, size_t size, uint32_t tag);
bool c11_image_is_complete(uint8_t const* last_word);
uint16_t c11_request_check(uint8_t const* packet, size_t size);
uint16_t c11_answer_check(uint8_t const* packet, size_t size);

#ifdef __cplusplus
}
#endif

#endif  // TESTS_FOR_FIRMWARE_AS_C11_H
