#include <cstddef>
#include <iterator>

#include "platform/clock.h"
#include "platform/relaxed.h"
#include "state/pushes.h"

void decode_histogram(PushPayload payload, TelemetryState& state) {
    for (std::size_t i = 0; i < std::size(state.histogram); ++i) {
        store_relaxed(state.histogram[i], payload[i]);
    }
    store_relaxed(state.histogram_time_ms, now_ms());
}
