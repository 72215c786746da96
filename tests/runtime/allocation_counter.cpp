#include "tests/runtime/allocation_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> allocation_count{0};
std::atomic<uint64_t> failing_allocation{0};  // the number of the one that fails; 0: none

}  // namespace

uint64_t GetAllocationCount()
{
    return allocation_count.load();
}

void FailAllocation(uint64_t n)
{
    failing_allocation.store(n == 0 ? 0 : allocation_count.load() + n);
}

void* operator new(std::size_t size)
{
    if (++allocation_count == failing_allocation.load()) {
        throw std::bad_alloc();
    }
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
