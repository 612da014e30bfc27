#include "usb/wait_budget.h"

#include <algorithm>

namespace {
std::int64_t second_of(WaitBudget::Clock::time_point time) {
    return std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
}
}  // namespace

WaitBudget::Duration WaitBudget::left(Clock::time_point now) const {
    const std::int64_t oldest = second_of(now) - window_seconds;
    Duration rest = limit;
    for (const Second& each : seconds_) {
        rest -= each.second >= oldest ? each.waited : Duration{0};
    }
    return std::max(rest, Duration{0});
}

void WaitBudget::spend(Clock::time_point now, Duration waited) {
    const std::int64_t second = second_of(now);
    Second& slot = seconds_[static_cast<std::size_t>(second) % seconds_.size()];
    if (slot.second != second) {
        slot = {second, Duration{0}};
    }
    slot.waited += waited;
}
