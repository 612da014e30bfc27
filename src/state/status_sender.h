// What the main application is told, and when: the status line once a second, two fixed records five times a
// second, and the recording notice twice a second, while the USB link is up.
#pragma once

#include <cstdint>

#include "ardenvue.h"
#include "state/telemetry.h"

// Where the status goes, whoever sends commands. Written before the threads that read it start.
struct MainAppTarget {
    const char*
        host;  // IPv4 dotted text, a private copy (heap), never released: threads read it until the end
    std::uint16_t port;
    TelemetryState* telemetry;
};

// The one record of the process.
MainAppTarget& main_app_target();

// Builds the status line and sends it to the main application. Returns the result of the send, or the line's
// length when no destination is set. Status thread.
long format_status_line(const TelemetryState& telemetry);

// The two records as they are sent. Status thread.
ardenvue::GimbalFocusRecord gimbal_focus_record(const TelemetryState& telemetry);
ardenvue::HistogramRecord histogram_record(const TelemetryState& telemetry);

// "rec_active" while the camera records, else "rec_inactive". Status thread.
const char* recording_notice(const TelemetryState& telemetry);

// The body of the status thread: 100 ms ticks that go on counting while the USB link is down, so the sends
// keep their phase. Drives the presence check of the main application and the end of the histogram's validity
// too. Never returns.
void* status_thread(void*);
