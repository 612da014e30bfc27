#include "platform/clock.h"

#include <unistd.h>

#include <ctime>

std::uint32_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint32_t>(now.tv_sec) * 1000U +
           static_cast<std::uint32_t>(now.tv_nsec / 1'000'000);
}

void sleep_ms(std::uint32_t milliseconds) {
    usleep(milliseconds * 1000U);
}
