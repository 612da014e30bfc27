// The gateway's clock: CLOCK_MONOTONIC, as the frames' times and the state's.
#pragma once

#include <chrono>

namespace gateway {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;
using Seconds = std::chrono::duration<double>;

inline double in_seconds(Clock::duration duration) {
    return Seconds{duration}.count();
}

}  // namespace gateway
