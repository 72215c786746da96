// Random numbers that follow from a seed alone, with every compiler and library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

// SplitMix64: the standard's distributions differ between libraries.
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}

    // 0 to `end` - 1.
    template <typename T>
    T Below(T end)
    {
        state_ += 0x9E3779B97F4A7C15;
        auto value = state_;
        value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
        value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
        return static_cast<T>((value ^ (value >> 31)) % static_cast<uint64_t>(end));
    }

    bool OneIn(unsigned n) { return Below(n) == 0; }

    template <typename Choices>
    auto const& Pick(Choices const& choices)
    {
        return std::data(choices)[Below(std::size(choices))];
    }

private:
    uint64_t state_;
};
