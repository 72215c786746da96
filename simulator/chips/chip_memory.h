// The memories of a simulated microcontroller that its bootloader can reach: flash, whose bits only
// ever go from 1 to 0 until their page is erased; the OTP area, whose bits never come back; RAM.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace simulator {

enum class MemoryKind { kFlash, kOtp, kRam };

class ChipMemory {
public:
    // `start` + `bytes.size()` must not pass the end of the 32-bit address space, and regions must
    // not overlap. One region at most is flash.
    void AddRegion(MemoryKind kind, uint32_t start, std::vector<std::byte> bytes);

    // The kind of memory at `address`; none where nothing is mapped.
    std::optional<MemoryKind> KindAt(uint32_t address) const;

    // True when all of `size` bytes from `address` lie in one region.
    bool Contains(uint32_t address, size_t size) const;

    // Both throw std::out_of_range unless Contains() is true. Write follows the rules of the kind
    // of memory.
    std::vector<std::byte> Read(uint32_t address, size_t size) const;
    void Write(uint32_t address, std::span<std::byte const> data);

    // Stores bytes as a production line or debugger would, whatever the rules of programming.
    // Throws std::out_of_range.
    void Load(uint32_t address, std::span<std::byte const> data);

    // Sets `size` bytes from `offset` of the flash region to 0xFF. Throws std::out_of_range.
    void EraseFlash(size_t offset, size_t size);

    // How many flash or OTP bytes were programmed although they were not erased. A real part
    // refuses that; here the bits are combined and the bytes counted.
    uint64_t ProgrammedOverUnerased() const { return programmed_over_unerased_; }

private:
    struct Region {
        MemoryKind kind;
        uint32_t start;
        std::vector<std::byte> bytes;
    };

    Region const* Find(uint32_t address, size_t size) const;
    std::span<std::byte> At(uint32_t address, size_t size);

    std::vector<Region> regions_;
    uint64_t programmed_over_unerased_ = 0;
};

}  // namespace simulator
