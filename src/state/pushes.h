// One decoder for each kind of push, from its payload into the telemetry record, in the file push_… of its
// name; camera_decode chooses among them. The payload is whole: it has the bytes that the push's length
// promises. USB reader thread.
#pragma once

#include <cstdint>
#include <span>

#include "state/telemetry.h"

using PushPayload = std::span<const std::uint8_t>;

void decode_gimbal_attitude(PushPayload payload, TelemetryState& state);
void decode_battery(PushPayload payload, TelemetryState& state);
void decode_power(PushPayload payload, TelemetryState& state);
void decode_camera_status(PushPayload payload, TelemetryState& state);
void decode_focus(PushPayload payload, TelemetryState& state);
void decode_histogram(PushPayload payload, TelemetryState& state);
void decode_camera_parameters(PushPayload payload, TelemetryState& state);

// Opens the shared record that decode_gimbal_attitude writes as well, the first time it is called; one that
// can't be had is not tried again. USB reader thread.
void open_shared_attitude();
