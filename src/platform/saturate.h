#pragma once

#include <cstdint>
#include <limits>

// Float-to-integer conversion as the boards' processors do it (the Arm VCVT instructions): rounded toward
// zero, a value out of range gives the nearest end of the range, NaN gives 0. The C++ conversion is undefined
// for those.
template <typename Integer>
constexpr Integer saturating_cast(double value) {
    static_assert(sizeof(Integer) <= 4, "the limits must be exact in a double");
    if (value != value) {
        return 0;
    }
    if (value <= static_cast<double>(std::numeric_limits<Integer>::min())) {
        return std::numeric_limits<Integer>::min();
    }
    if (value >= static_cast<double>(std::numeric_limits<Integer>::max())) {
        return std::numeric_limits<Integer>::max();
    }
    return static_cast<Integer>(value);
}
