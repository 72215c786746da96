#include "tests/runtime/allocation_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> allocation_count{0};

}  // namespace

uint64_t GetAllocationCount()
{
    return allocation_count.load();
}

void* operator new(std::size_t size)
{
    ++allocation_count;
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
