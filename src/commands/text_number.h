// Numbers of a command's texts: the longest valid prefix counts, a text without a number gives 0. The service
// never leaves the "C" locale, so the decimal point is a point.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <limits>

// A whole decimal number; beyond the range of int the nearest end, whatever the size of the board's long.
inline int to_int(const char* text) {
    const long number = std::strtol(text, nullptr, 10);
    return static_cast<int>(
        std::clamp<long>(number, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

// A number as strtod reads it (hexadecimal, "inf" and "nan" included), rounded to single precision; beyond
// its range it is infinite, as IEEE 754 has it.
inline float to_float(const char* text) {
    static_assert(std::numeric_limits<float>::is_iec559);
    return static_cast<float>(std::strtod(text, nullptr));
}
