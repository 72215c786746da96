// Bytes of the STM32 system bootloader's UART protocol (ST AN3155): framing only, no port, no
// clock, no state. stm32_uart_updater.h adds the waits and retries.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace stm32_updater {

// Command codes (AN3155, "USART bootloader command set").
enum class Command : uint8_t {
    kGet = 0x00,
    kGetVersionReadProtection = 0x01,
    kGetId = 0x02,
    kReadMemory = 0x11,
    kGo = 0x21,
    kWriteMemory = 0x31,
    kErase = 0x43,
    kExtendedErase = 0x44,
};

// The bit of `command` in the mask of the commands that a bootloader supports; 0 for Read Memory,
// Go and every code that is not in the enumeration.
uint16_t GetCommandBit(Command command);

// The byte from which the bootloader learns the line speed (AN3155, "bootloader code sequence").
inline constexpr std::byte kSyncByte{0x7F};

// A command as it is sent: its code, then the code's complement.
std::array<std::byte, 2> GetCommandBytes(Command command);

// `address` as the bootloader reads it: four bytes, most significant first, then their XOR. Accepts
// every value; the chip decides what is mapped.
std::array<std::byte, 5> GetAddressBytes(uint32_t address);

// The count of a Read Memory: `count` - 1 and its complement. 1 <= count <= kMaxBlock.
std::array<std::byte, 2> GetReadCountBytes(size_t count);

// The data of a Write Memory: length - 1, the data, the XOR of both. 1 <= data.size() <= kMaxBlock;
// zeros pad it to a multiple of kWordSize, because the bootloader takes whole words only.
std::vector<std::byte> GetWriteBytes(std::span<std::byte const> data);

// The page list of an Erase: count - 1, one byte a page, their XOR. An empty list yields FF FF,
// this updater's request to erase everything (AN3155 has FF 00 for that).
std::vector<std::byte> GetEraseBytes(std::span<std::byte const> pages);

// The page list of an Extended Erase: count - 1 and each page as 16 bits, most significant byte
// first, then their XOR. An empty list yields FF FF 00, the global mass erase.
std::vector<std::byte> GetExtendedEraseBytes(std::span<uint16_t const> pages);

// XOR of all bytes; 0 for none.
std::byte GetXor(std::span<std::byte const> bytes);

}  // namespace stm32_updater
