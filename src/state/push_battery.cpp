#include "platform/little_endian.h"
#include "platform/relaxed.h"
#include "state/pushes.h"

void decode_battery(PushPayload payload, TelemetryState& state) {
    store_relaxed(state.battery_level, static_cast<std::int8_t>(payload[20]));
    store_relaxed(state.power_aux, 0);
    store_relaxed(state.voltage, 0);
    store_relaxed(state.battery_temperature, load_le16(&payload[17]));
}

void decode_power(PushPayload payload, TelemetryState& state) {
    store_relaxed(state.power_aux, load_le16(&payload[14]));
    store_relaxed(state.voltage, static_cast<std::int16_t>(load_le16(&payload[1])));
    store_relaxed(state.battery_level, static_cast<std::int8_t>(payload[0]));
}
