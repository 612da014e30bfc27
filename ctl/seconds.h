#pragma once

#include <algorithm>
#include <chrono>

namespace ctl {

using Clock = std::chrono::steady_clock;

// Seconds as given on the command line, as a duration of the clock; thirty years at most, which it can hold.
inline Clock::duration seconds(double value) {
    return std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>{value < 1e9 ? value : 1e9});
}

inline double in_seconds(Clock::duration duration) {
    return std::chrono::duration<double>{duration}.count();
}

// The whole milliseconds until then, rounded up, as the library takes its timeouts: none that has passed, and
// some days at most.
inline int milliseconds_until(Clock::time_point then) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(then - Clock::now()).count();
    return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left, 0, 1'000'000'000));
}

}  // namespace ctl
