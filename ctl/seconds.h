#pragma once

#include "ctl/reports.h"

namespace ctl {

// Seconds as given on the command line, as a duration of the clock; thirty years at most, which it can hold.
inline Clock::duration seconds(double value) {
    return std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>{value < 1e9 ? value : 1e9});
}

inline double in_seconds(Clock::duration duration) {
    return std::chrono::duration<double>{duration}.count();
}

}  // namespace ctl
