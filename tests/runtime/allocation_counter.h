// Counts the allocations of a whole program: linking this replaces the global operator new.
#pragma once

#include <cstdint>

// Since the start of the program, all threads.
uint64_t GetAllocationCount();
