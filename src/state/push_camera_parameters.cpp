#include <algorithm>
#include <iterator>

#include "platform/little_endian.h"
#include "platform/relaxed.h"
#include "state/camera_codes.h"
#include "state/camera_text.h"
#include "state/pushes.h"

namespace {
using namespace camera_codes;

// What a row of a table says in a push.
template <typename Row>
constexpr Code pushed_code(const Row& row) {
    return row.code;
}
constexpr Code pushed_code(const WhiteBalance& row) {
    return row.reported;
}
template <typename Row>
constexpr const char* reported_text(const Row& row) {
    return row.text;
}
constexpr const char* reported_text(const TwoTextCode& row) {
    return row.reported;
}

// Stores a code and the text that the table gives for it.
template <auto code_field, auto text_field, const auto& table>
void store(TelemetryState& state, Code code, const char* otherwise) {
    store_relaxed(state.*code_field, code);
    const auto row =
        std::ranges::find_if(table, [code](const auto& each) { return pushed_code(each) == code; });
    store_text(state.*text_field, row != std::end(table) ? reported_text(*row) : otherwise);
}

// The codes of the push that have a text.
using State = TelemetryState;
constexpr struct {
    std::size_t offset;
    std::uint8_t mask;
    void (*store)(TelemetryState& state, Code code, const char* otherwise);
    const char* otherwise;  // the text of a code that the table does not have
} codes[] = {
    {13, 0xFF, store<&State::resolution, &State::resolution_text, video_sizes>, ""},
    {14, 0xFF, store<&State::frame_rate, &State::frame_rate_text, frame_rates>, ""},
    {23, 0xFF, store<&State::white_balance, &State::white_balance_text, white_balances>, "custom"},
    {12, 0xFF, store<&State::photo_format, &State::photo_format_text, photo_formats>, ""},
    {5, 0xFF, store<&State::iso_set, &State::iso_set_text, iso_values>, "auto"},
    {31, 0xFF, store<&State::color_mode, &State::color_mode_text, color_profiles>, "none"},
    {20, 0xFF, store<&State::exposure_mode, &State::exposure_mode_text, exposure_programs>, "auto"},
    {10, 0xFF, store<&State::aspect, &State::aspect_text, aspect_ratios>, "4:3"},
    {55, 0x01, store<&State::video_standard, &State::video_standard_text, video_standards>, "PAL"},
    {32, 0xFF, store<&State::antiflicker, &State::antiflicker_text, antiflicker_modes>, "auto"},
};

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
    for (const auto& row : codes) {
        row.store(state, payload[row.offset] & row.mask, row.otherwise);
    }
    store_relaxed(state.wb_temperature_code, payload[24]);
    store_relaxed(state.wb_temperature, static_cast<float>(payload[24]) * 100.0F);
    const std::uint16_t aperture = load_le16(&payload[38]);
    store_relaxed(state.aperture, aperture);
    store_text(state.aperture_text, format_aperture(aperture).text);
    store_relaxed(state.iso, load_le16(&payload[43]));
    store_relaxed(state.ae_flag, payload[56] != 0 ? 1 : 0);
    store_exposure_step(payload[6], state);
    store_shutter(state.shutter_set, state.shutter_set_text, load_le24(&payload[2]));
    store_shutter(state.shutter, state.shutter_text, load_le24(&payload[40]));
}
