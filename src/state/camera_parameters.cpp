#include "platform/little_endian.h"
#include "platform/relaxed.h"
#include "state/camera_codes.h"
#include "state/camera_pushes.h"
#include "state/camera_text.h"

namespace {
using namespace camera_codes;

// Stores a code and the text that a table gives for it.
template <typename Row, std::size_t count, std::size_t capacity>
void store_code(std::uint8_t& code_field, char (&text_field)[capacity], std::uint8_t code,
                const Row (&table)[count], Code Row::*code_member, const char* Row::*text_member,
                const char* otherwise) {
    store_relaxed(code_field, code);
    const Row* row = find(table, code_member, code);
    store_text(text_field, row != nullptr ? row->*text_member : otherwise);
}

template <std::size_t capacity>
void store_shutter(std::uint32_t& code_field, char (&text_field)[capacity], std::uint32_t code) {
    store_relaxed(code_field, code);
    if (const auto text = format_shutter(code)) {
        store_text(text_field, text->text);
    }
}

void store_exposure_step(std::uint8_t code, TelemetryState& state) {
    const ExposureStep* step = find(exposure_steps, &ExposureStep::code, code);
    store_relaxed(state.ev, step != nullptr ? static_cast<float>(step->ev) : 0.0F);
    store_text(state.ev_text, step != nullptr ? step->text : "0");
}
}  // namespace

void decode_camera_parameters(PushPayload payload, TelemetryState& state) {
    store_code(state.resolution, state.resolution_text, payload[13], video_sizes, &VideoSize::code,
               &VideoSize::text, "");
    store_code(state.frame_rate, state.frame_rate_text, payload[14], frame_rates, &FrameRate::code,
               &FrameRate::text, "");
    store_code(state.white_balance, state.white_balance_text, payload[23], white_balances,
               &WhiteBalance::reported, &WhiteBalance::text, "custom");
    store_relaxed(state.wb_temperature_code, payload[24]);
    store_relaxed(state.wb_temperature, static_cast<float>(payload[24]) * 100.0F);
    store_code(state.photo_format, state.photo_format_text, payload[12], photo_formats, &TwoTextCode::code,
               &TwoTextCode::reported, "");
    const std::uint16_t aperture = load_le16(&payload[38]);
    store_relaxed(state.aperture, aperture);
    store_text(state.aperture_text, format_aperture(aperture).text);
    store_relaxed(state.iso, load_le16(&payload[43]));
    store_code(state.iso_set, state.iso_set_text, payload[5], iso_values, &CodeText::code, &CodeText::text,
               "auto");
    store_relaxed(state.ae_flag, payload[56] != 0 ? 1 : 0);
    store_exposure_step(payload[6], state);
    store_code(state.color_mode, state.color_mode_text, payload[31], color_profiles, &CodeText::code,
               &CodeText::text, "none");
    store_code(state.exposure_mode, state.exposure_mode_text, payload[20], exposure_programs, &CodeText::code,
               &CodeText::text, "auto");
    store_code(state.aspect, state.aspect_text, payload[10], aspect_ratios, &CodeText::code, &CodeText::text,
               "4:3");
    store_code(state.video_standard, state.video_standard_text, static_cast<std::uint8_t>(payload[55] & 1),
               video_standards, &CodeText::code, &CodeText::text, "PAL");
    store_code(state.antiflicker, state.antiflicker_text, payload[32], antiflicker_modes, &TwoTextCode::code,
               &TwoTextCode::reported, "auto");
    store_shutter(state.shutter_set, state.shutter_set_text, load_le24(&payload[2]));
    store_shutter(state.shutter, state.shutter_text, load_le24(&payload[40]));
}
