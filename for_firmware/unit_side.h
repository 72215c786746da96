// The unit's side of an update, for the firmware of a unit: what is in its OTP area, what the
// updater leaves in its memory, and the figures and check values of its serial line. C11 without
// any dependency; C++ takes it as well. docs/for-vendors/the-unit.md explains each of them.
//
// The updater has these figures in its own headers. tests/for_firmware/ compares the two.
#ifndef FOR_FIRMWARE_UNIT_SIDE_H
#define FOR_FIRMWARE_UNIT_SIDE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

// ---- OTP area: a table of records, one after the other ----

#define UNIT_OTP_RECORDS 32U
#define UNIT_OTP_RECORD_SIZE 16U                // bytes
#define UNIT_OTP_CONTENT_OFFSET 4U              // in a record, behind its tag
#define UNIT_OTP_LONGEST_TEXT 11U               // characters; a zero byte follows
#define UNIT_OTP_MODEL_TAG 0x01234711U          // the content begins with the model identifier
#define UNIT_OTP_SERIAL_NUMBER_TAG 0x3CA6A4AFU  // the content is text

// ---- UART: the STM32 system bootloader ----

#define UNIT_UART_BAUD 460800U  // 8E1; the bootloader measures it
#define UNIT_UART_ERASE_MS 5000U
#define UNIT_BOOTLOADER_RAM_SIZE 0x4000U   // from the start of RAM; closed to the updater
#define UNIT_BOOT_MODE_MARKER 0x46575550U  // "PUWF" as a little-endian word
#define UNIT_TRAILER_SIZE 8U               // bytes at the image's end that are written last
#define UNIT_LAST_WORD 0x00000001U         // the image's last four bytes after an update

// ---- MCUboot serial recovery ----

#define UNIT_SMP_BAUD 921600U  // 8N1; the default of the updater's key mcuboot_baud
#define UNIT_SMP_START_0 0x06U
#define UNIT_SMP_START_1 0x09U
#define UNIT_SMP_CONTINUATION_0 0x04U
#define UNIT_SMP_CONTINUATION_1 0x14U
#define UNIT_SMP_HEADER_SIZE 8U
#define UNIT_SMP_LONGEST_LINE 2039U  // of a request, its newline included
#define UNIT_SMP_LARGEST_CHUNK 1483U

#define UNIT_SMP_READ 0U  // operations; an answer has one more than its request
#define UNIT_SMP_WRITE 2U
#define UNIT_SMP_OS_GROUP 0U
#define UNIT_SMP_RESET 5U
#define UNIT_SMP_IMAGE_GROUP 1U
#define UNIT_SMP_IMAGE_STATE 0U
#define UNIT_SMP_UPLOAD 1U
#define UNIT_SMP_OTP_GROUP 64U  // the vendor's own
#define UNIT_SMP_OTP_READ 0U
#define UNIT_SMP_KEY_NOT_FOUND 5U  // "rc" for an OTP key without a value

// How long the updater waits for an answer, and for the next line of one.
#define UNIT_SMP_QUERY_MS 2000U
#define UNIT_SMP_FIRST_CHUNK_MS 10000U
#define UNIT_SMP_CHUNK_MS 3000U
#define UNIT_SMP_NEXT_LINE_MS 3U

// The updater gives up after this many answers that ask for the same offset again.
#define UNIT_SMP_STALLS 16U

// ---- Functions ----

// The content of the first record with this tag, UNIT_OTP_RECORD_SIZE - UNIT_OTP_CONTENT_OFFSET
// bytes; null without one. `otp` points to the start of the area, `size` is its size in bytes. Only
// the first UNIT_OTP_RECORDS records count, and of those only the ones that lie wholly inside.
static inline uint8_t const* unit_find_otp_record(uint8_t const* otp, size_t size, uint32_t tag)
{
    size_t const table = (size_t)UNIT_OTP_RECORDS * UNIT_OTP_RECORD_SIZE;
    size_t const end = size < table ? size : table;
    for (size_t at = 0; end - at >= UNIT_OTP_RECORD_SIZE; at += UNIT_OTP_RECORD_SIZE) {
        uint32_t found = 0;
        for (size_t i = UNIT_OTP_CONTENT_OFFSET; i > 0; --i) {
            found = found << 8 | otp[at + i - 1];
        }
        if (found == tag) {
            return otp + at + UNIT_OTP_CONTENT_OFFSET;
        }
    }
    return NULL;
}

// Whether an update over UART reached its end: what the firmware or the boot code asks at start-up.
// `last_word` points to the image's last four bytes. Give it a symbol of the linker script: the
// compiler knows the value of a constant, and would not look into the flash.
static inline bool unit_image_is_complete(uint8_t const* last_word)
{
    uint32_t const value = (uint32_t)last_word[0] | (uint32_t)last_word[1] << 8 |
                           (uint32_t)last_word[2] << 16 | (uint32_t)last_word[3] << 24;
    return value == UNIT_LAST_WORD;
}

// CRC-16, polynomial 0x1021, most significant bit first. `crc` is the result so far.
static inline uint16_t unit_crc16(uint8_t const* data, size_t size, uint16_t crc)
{
    uint32_t value = crc;
    for (size_t i = 0; i < size; ++i) {
        value ^= (uint32_t)data[i] << 8;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 0x8000U) != 0 ? value << 1 ^ 0x1021U : value << 1;
        }
    }
    return (uint16_t)(value & 0xFFFFU);
}

// The check value that a request must have. `packet` is what it covers: the header
// (UNIT_SMP_HEADER_SIZE bytes) and the map, without the length before them. size >=
// UNIT_SMP_HEADER_SIZE. Like all numbers in a message it is sent most significant byte first.
static inline uint16_t unit_request_check(uint8_t const* packet, size_t size)
{
    return (uint16_t)(unit_crc16(packet, size, 0xFFFFU) ^ 0xFFFFU);
}

// The check value that an answer must have, which follows another rule.
static inline uint16_t unit_answer_check(uint8_t const* packet, size_t size)
{
    uint16_t const header = unit_crc16(packet, UNIT_SMP_HEADER_SIZE, 0xFFFFU);
    uint16_t const all = unit_crc16(packet + UNIT_SMP_HEADER_SIZE, size - UNIT_SMP_HEADER_SIZE,
                                    (uint16_t)(header ^ 0xE2F0U));
    return (uint16_t)(all ^ 0x1D0FU);
}

#endif  // FOR_FIRMWARE_UNIT_SIDE_H
