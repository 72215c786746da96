// Bytes of the STM32 system bootloader's UART protocol (ST AN3155), framing only: no port, no
// clock, no state. The waits and retries built on them are in stm32_uart_updater.h.
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

// The byte from which the bootloader learns the line speed (AN3155, "bootloader code sequence").
inline constexpr std::byte kSyncByte{0x7F};

// A command as it is sent: its code, then the code's complement.
std::array<std::byte, 2> GetCommandBytes(Command command);

// `address` as the bootloader reads it: four bytes, most significant first, then their XOR. Every
// value is accepted; the chip decides what is mapped.
std::array<std::byte, 5> GetAddressBytes(uint32_t address);

// The count of a Read Memory: `count` - 1 and its complement. 1 <= count <= 256.
std::array<std::byte, 2> GetReadCountBytes(size_t count);

// The data of a Write Memory: length - 1, the data, the XOR of both. The bootloader takes only
// whole words, so the data is padded with zeros to a multiple of 4. 1 <= data.size() <= 256.
std::vector<std::byte> GetWriteBytes(std::span<std::byte const> data);

// The page list of an Erase: count - 1, one byte a page, their XOR. An empty list yields FF FF,
// this updater's request to erase everything (AN3155 writes FF 00 there).
std::vector<std::byte> GetEraseBytes(std::span<std::byte const> pages);

// The page list of an Extended Erase: count - 1 and each page as 16 bits, most significant byte
// first, then their XOR. An empty list yields FF FF 00, the global mass erase.
std::vector<std::byte> GetExtendedEraseBytes(std::span<uint16_t const> pages);

// XOR of all bytes; 0 for none.
std::byte GetXor(std::span<std::byte const> bytes);

}  // namespace stm32_updater
