#include "simulator/chips/chip_memory.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace simulator {

void ChipMemory::AddRegion(MemoryKind kind, uint32_t start, std::vector<std::byte> bytes)
{
    regions_.push_back({kind, start, std::move(bytes)});
}

std::optional<MemoryKind> ChipMemory::KindAt(uint32_t address) const
{
    auto const* const region = Find(address, 1);
    return region == nullptr ? std::nullopt : std::optional(region->kind);
}

bool ChipMemory::Contains(uint32_t address, size_t size) const
{
    return Find(address, size) != nullptr;
}

std::vector<std::byte> ChipMemory::Read(uint32_t address, size_t size) const
{
    auto const* const region = Find(address, size);
    if (region == nullptr) {
        throw std::out_of_range("there is no memory");
    }
    auto const bytes = std::span(region->bytes).subspan(address - region->start, size);
    return {bytes.begin(), bytes.end()};
}

void ChipMemory::Write(uint32_t address, std::span<std::byte const> data)
{
    if (KindAt(address) == MemoryKind::kRam) {
        Load(address, data);
        return;
    }
    auto const cells = At(address, data.size());
    for (size_t i = 0; i < data.size(); ++i) {
        programmed_over_unerased_ += cells[i] == kErased ? 0U : 1U;
        cells[i] &= data[i];
    }
}

bool ChipMemory::ProgramUnit(uint32_t address, std::span<std::byte const> unit)
{
    auto const cells = At(address, unit.size());
    auto const is_zero = [](std::byte byte) { return byte == std::byte{0}; };
    auto const programmed = unit.size() - static_cast<size_t>(std::ranges::count(cells, kErased));
    bool const is_flash = KindAt(address) == MemoryKind::kFlash;
    if (programmed != 0 && !(is_flash && std::ranges::all_of(unit, is_zero))) {
        programmed_over_unerased_ += programmed;
        return false;
    }
    std::ranges::copy(unit, cells.begin());
    return true;
}

void ChipMemory::Load(uint32_t address, std::span<std::byte const> data)
{
    std::ranges::copy(data, At(address, data.size()).begin());
}

void ChipMemory::EraseFlash(size_t offset, size_t size)
{
    auto const flash = std::ranges::find(regions_, MemoryKind::kFlash, &Region::kind);
    if (flash == regions_.end() || offset > flash->bytes.size() ||
        size > flash->bytes.size() - offset) {
        throw std::out_of_range("there is no flash");
    }
    std::ranges::fill(std::span(flash->bytes).subspan(offset, size), kErased);
}

ChipMemory::Region const* ChipMemory::Find(uint32_t address, size_t size) const
{
    auto const holds = [&](Region const& region) {
        return address >= region.start && address - region.start < region.bytes.size() &&
               size <= region.bytes.size() - (address - region.start);
    };
    auto const found = std::ranges::find_if(regions_, holds);
    return found == regions_.end() ? nullptr : &*found;
}

std::span<std::byte> ChipMemory::At(uint32_t address, size_t size)
{
    auto const* const region = Find(address, size);
    if (region == nullptr) {
        throw std::out_of_range("there is no memory");
    }
    auto& bytes = regions_[static_cast<size_t>(region - regions_.data())].bytes;
    return std::span(bytes).subspan(address - region->start, size);
}

}  // namespace simulator
