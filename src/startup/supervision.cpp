#include "startup/supervision.h"

#include <cstdio>

#include "io/usb_link.h"
#include "platform/clock.h"
#include "platform/process_end.h"
#include "platform/shared_memory.h"
#include "startup/companion.h"

namespace {
constexpr std::uint32_t period_ms = 1000;
constexpr std::uint32_t companion_passes = 5;

void check_camera() {
    const auto silence_ms = static_cast<std::int32_t>(now_ms() - usb_last_activity_ms());
    const WatchdogVerdict verdict = watchdog_verdict(silence_ms);
    if (verdict.is_late) {
        std::fprintf(stderr, "delta %d\n", silence_ms);
    }
    if (verdict.is_expired) {
        end_process(exit_camera_silent, "Camera connection timeout\n");
    }
}
}  // namespace

void supervise() {
    for (std::uint32_t pass = 0;; ++pass) {
        check_camera();
        if (pass % companion_passes == 0 && usb_streaming()) {
            keep_companion_running();
        }
        restore_shared_memory();
        sleep_ms(period_ms);
    }
}
