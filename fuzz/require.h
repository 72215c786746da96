// What must hold in a fuzz target, whatever the build type: the process ends where it does not.
#pragma once

#include <cstdio>
#include <cstdlib>

inline void Require(bool holds, char const* what)
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}
