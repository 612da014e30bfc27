#pragma once

#include <ctime>

#include "client/reports.h"

namespace client {

inline Nanoseconds monotonic_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<Nanoseconds>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

}  // namespace client
