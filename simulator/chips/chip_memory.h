// The memories of a simulated microcontroller that its bootloader can reach: flash, whose bits only
// ever go from 1 to 0 until their page is erased; the OTP area, whose bits never come back; RAM.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace simulator {

inline constexpr std::byte kErased{0xFF};

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

    // All three throw std::out_of_range unless Contains() is true.
    std::vector<std::byte> Read(uint32_t address, size_t size) const;
    // Stores bytes of any number: as they are in RAM, by clearing bits elsewhere.
    void Write(uint32_t address, std::span<std::byte const> data);
    // Programs one unit of flash or OTP area, whose bytes share one error-correction code. A unit
    // that is not erased cannot take another code: it stays as it is, and the result is false. The
    // only exception is that flash takes zeros in a whole unit (RM0440, RM0456).
    bool ProgramUnit(uint32_t address, std::span<std::byte const> unit);

    // Stores bytes as a production line or debugger would, whatever the rules of programming.
    // Throws std::out_of_range.
    void Load(uint32_t address, std::span<std::byte const> data);

    // Sets `size` bytes from `offset` of the flash region to 0xFF. Throws std::out_of_range.
    void EraseFlash(size_t offset, size_t size);

    // How many flash or OTP bytes that were not erased were to be programmed by Write() or
    // ProgramUnit().
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
