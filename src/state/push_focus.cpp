#include <bit>

#include "platform/little_endian.h"
#include "platform/relaxed.h"
#include "state/pushes.h"

namespace {
const char* focus_mode_text(std::uint8_t mode) {
    switch (mode) {
        case 0x84:
        case 0xA0:
            return "MF";
        case 0x85:
        case 0xA5:
            return "AFS";
        case 0x86:
        case 0xA6:
            return "AFC";
        default:
            return "";
    }
}
}  // namespace

void decode_focus(PushPayload payload, TelemetryState& state) {
    store_relaxed(state.focus_valid, 1);
    store_relaxed(state.focus_mode, payload[0]);
    store_text(state.focus_mode_text, focus_mode_text(payload[0]));
    const std::uint16_t max = load_le16(&payload[1]);
    const std::uint16_t position = load_le16(&payload[3]);
    store_relaxed(state.focus_max, max);
    store_relaxed(state.focus_position, position);
    store_relaxed(state.focus_percent, static_cast<float>(position) / static_cast<float>(max) * 100.0F);
    store_relaxed(state.focus_point_x, std::bit_cast<float>(load_le32(&payload[13])));
    store_relaxed(state.focus_point_y, std::bit_cast<float>(load_le32(&payload[17])));
    store_relaxed(state.focus_aux_1, payload[21]);
    store_relaxed(state.focus_aux_2, payload[31]);
}
