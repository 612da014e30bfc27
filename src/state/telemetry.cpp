#include "state/telemetry.h"

#include <cstring>

namespace {
TelemetryState telemetry;
}

TelemetryState& get_telemetry_state() {
    return telemetry;
}

void clear_telemetry_state() {
    std::memset(&telemetry, 0, sizeof telemetry);
}
