// An assertion for fuzz targets that every build type checks: the process aborts when it fails.
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
