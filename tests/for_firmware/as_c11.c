// The header for device firmware as a C compiler understands it: header_test.cpp calls these.
#include "tests/for_firmware/as_c11.h"
#include "for_firmware/unit_side.h"

uint8_t const* c11_find_otp_record(uint8_t const* otp, size_t size, uint32_t tag)
{
    return unit_find_otp_record(otp, size, tag);
}

bool c11_image_is_complete(uint8_t const* last_word)
{
    return unit_image_is_complete(last_word);
}

uint16_t c11_request_check(uint8_t const* packet, size_t size)
{
    return unit_request_check(packet, size);
}

uint16_t c11_answer_check(uint8_t const* packet, size_t size)
{
    return unit_answer_check(packet, size);
}
