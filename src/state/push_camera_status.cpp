#include <charconv>
#include <cstring>

#include "platform/little_endian.h"
#include "platform/relaxed.h"
#include "state/camera_codes.h"
#include "state/camera_text.h"
#include "state/pushes.h"

namespace {
using camera_codes::CodeText;
using camera_codes::find;

constexpr CodeText camera_models[] = {
    {2, "Phantom 3 Std"},  {3, "Phantom 3 Adv"},       {4, "Phantom 3 Pro"},  {6, "Phantom 4"},
    {9, "Mavic Pro"},      {10, "Phantom 3 4K"},       {13, "Phantom 4 Pro"}, {14, "Phantom 4 Pro"},
    {15, "Phantom 4 Pro"}, {28, "Phantom 4 Pro V2.0"},
};

constexpr CodeText camera_modes[] = {{0, "photo"}, {1, "video"}, {2, "playback"}};

void store_camera_model(std::uint8_t device_id, TelemetryState& state) {
    if (const CodeText* model = find(camera_models, &CodeText::code, device_id)) {
        store_text(state.camera_model, model->text);
        return;
    }
    char text[32] = "Unknown device id ";
    *std::to_chars(text + std::strlen(text), std::end(text) - 1, device_id).ptr = '\0';
    store_text(state.camera_model, text);
}
}  // namespace

void decode_camera_status(PushPayload payload, TelemetryState& state) {
    store_relaxed(state.device_id, payload[33]);
    store_camera_model(payload[33], state);
    store_relaxed(state.camera_detected, 1);
    store_relaxed(state.camera_mode, payload[4]);
    const CodeText* mode = find(camera_modes, &CodeText::code, payload[4]);
    store_text(state.camera_mode_text, mode != nullptr ? mode->text : "unknown");
    store_relaxed(state.camera_flags_a, payload[0]);
    store_relaxed(state.camera_flags_b, payload[2]);
    store_relaxed(state.camera_flags_c, payload[31]);

    const std::uint32_t sd_capacity = load_le32(&payload[9]);
    store_relaxed(state.sd_capacity_mb, sd_capacity);
    store_text(state.sd_text, sd_capacity != 0 ? format_gigabytes(sd_capacity).text : "");
    store_relaxed(state.shots_left, load_le32(&payload[13]));
    const std::uint32_t seconds_left = load_le32(&payload[17]);
    store_relaxed(state.record_left_seconds, seconds_left);
    store_text(state.record_left_text, format_duration(seconds_left).text);
    const std::uint32_t seconds = load_le16(&payload[29]);
    store_relaxed(state.record_seconds, seconds);
    store_text(state.record_time_text, format_duration(seconds).text);
}
