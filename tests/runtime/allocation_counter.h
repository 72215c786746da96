// Counts the allocations of a whole program, and lets one fail: linking this replaces the global
// operator new.
#pragma once

#include <cstdint>

// Since the start of the program, all threads.
uint64_t GetAllocationCount();

// Lets the n-th allocation from now on fail, with std::bad_alloc; 0: none.
void FailAllocation(uint64_t n);
