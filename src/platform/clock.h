#pragma once

#include <cstdint>

// Wall clock (CLOCK_REALTIME) in milliseconds: seconds x 1000 + nanoseconds / 1,000,000, in wrapping 32-bit
// arithmetic. Only differences between two values mean anything. Any thread.
std::uint32_t now_ms();

// Sleeps for the given number of milliseconds. A cancellation point. Any thread.
void sleep_ms(std::uint32_t milliseconds);
