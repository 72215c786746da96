#include "modules/stm32_updater/command_bytes.h"

#include <numeric>

#include "modules/stm32_updater/limits.h"

namespace stm32_updater {
namespace {

void AppendBigEndian16(std::vector<std::byte>& bytes, size_t value)
{
    bytes.push_back(static_cast<std::byte>((value >> 8) & 0xFF));
    bytes.push_back(static_cast<std::byte>(value & 0xFF));
}

}  // namespace

std::byte GetXor(std::span<std::byte const> bytes)
{
    return std::accumulate(bytes.begin(), bytes.end(), std::byte{0},
                           [](std::byte a, std::byte b) { return a ^ b; });
}

uint16_t GetCommandBit(Command command)
{
    switch (command) {
        case Command::kGet:
            return 0x0001;
        case Command::kGetVersionReadProtection:
            return 0x0002;
        case Command::kGetId:
            return 0x0004;
        case Command::kWriteMemory:
            return 0x0040;
        case Command::kErase:
            return 0x0080;
        case Command::kExtendedErase:
            return 0x0100;
        case Command::kReadMemory:
        case Command::kGo:
            break;
    }
    return 0;
}

std::array<std::byte, 2> GetCommandBytes(Command command)
{
    auto const code = static_cast<std::byte>(command);
    return {code, ~code};
}

std::array<std::byte, 5> GetAddressBytes(uint32_t address)
{
    std::array<std::byte, 5> bytes{};
    for (size_t i = 0; i < 4; ++i) {
        bytes[i] = static_cast<std::byte>((address >> (8 * (3 - i))) & 0xFF);
    }
    bytes[4] = GetXor(std::span(bytes).first<4>());
    return bytes;
}

std::array<std::byte, 2> GetReadCountBytes(size_t count)
{
    auto const last = static_cast<std::byte>((count - 1) & 0xFF);
    return {last, ~last};
}

std::vector<std::byte> GetWriteBytes(std::span<std::byte const> data)
{
    auto const padded = (data.size() + kWordSize - 1) / kWordSize * kWordSize;
    std::vector<std::byte> bytes;
    bytes.reserve(padded + 2);
    bytes.push_back(static_cast<std::byte>((padded - 1) & 0xFF));
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.resize(padded + 1);
    bytes.push_back(GetXor(bytes));
    return bytes;
}

std::vector<std::byte> GetEraseBytes(std::span<std::byte const> pages)
{
    std::vector<std::byte> bytes;
    bytes.reserve(pages.size() + 2);
    bytes.push_back(static_cast<std::byte>((pages.size() - 1) & 0xFF));
    bytes.insert(bytes.end(), pages.begin(), pages.end());
    bytes.push_back(GetXor(bytes));
    return bytes;
}

std::vector<std::byte> GetExtendedEraseBytes(std::span<uint16_t const> pages)
{
    std::vector<std::byte> bytes;
    bytes.reserve(2 * pages.size() + 3);
    AppendBigEndian16(bytes, pages.size() - 1);
    for (auto const page : pages) {
        AppendBigEndian16(bytes, page);
    }
    bytes.push_back(GetXor(bytes));
    return bytes;
}

}  // namespace stm32_updater
