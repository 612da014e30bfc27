#pragma once

#include <cstdint>

// What a pass of the watchdog makes of the time since the last USB activity.
struct WatchdogVerdict {
    bool is_late;     // worth a line: more than a second
    bool is_expired;  // the end of the process: more than five
};
constexpr WatchdogVerdict watchdog_verdict(std::int32_t silence_ms) {
    return {.is_late = silence_ms > 1000, .is_expired = silence_ms > 5000};
}

// Once a second, for the life of the process: ends it with code 2 when the camera has been silent for too
// long, and keeps the companion running while data flows. Main thread.
[[noreturn]] void supervise();
