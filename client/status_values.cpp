// The texts of the status line as values.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>

#include "client/choices.h"
#include "client/reports.h"
#include "formats/nearest_word.h"

namespace client {
namespace {

double number(std::string_view text) {
    const auto value = formats::number_of(text);
    return value && std::isfinite(*value) ? *value : std::numeric_limits<double>::quiet_NaN();
}

// Held to the type's range; the second value for a text that is no number.
std::int32_t whole_number(std::string_view text, std::int32_t otherwise) {
    const double value = number(text);
    if (std::isnan(value)) {
        return otherwise;
    }
    return static_cast<std::int32_t>(std::clamp<double>(value, std::numeric_limits<std::int32_t>::min(),
                                                        std::numeric_limits<std::int32_t>::max()));
}

// "01:02:05", the hours of any length that fits.
std::int32_t seconds(const char* text) {
    unsigned hours = 0;
    unsigned minutes = 0;
    unsigned rest = 0;
    char more = 0;
    const bool plain = text[std::strspn(text, "0123456789:")] == '\0';
    const bool whole = std::sscanf(text, "%5u:%2u:%2u%c", &hours, &minutes, &rest, &more) == 3;
    return plain && whole ? static_cast<std::int32_t>(hours * 3600 + minutes * 60 + rest) : -1;
}

std::string_view without_last(std::string_view text, char last) {
    return text.ends_with(last) ? text.substr(0, text.size() - 1) : text;
}

// The halves of "3840x2160"; an empty text for what has none.
std::string_view before(std::string_view text, char separator) {
    const std::size_t at = text.find(separator);
    return at == std::string_view::npos ? std::string_view{} : text.substr(0, at);
}
std::string_view behind(std::string_view text, char separator) {
    const std::size_t at = text.find(separator);
    return at == std::string_view::npos ? std::string_view{} : text.substr(at + 1);
}

template <typename Enumeration>
Enumeration choice(std::span<const Choice> choices, std::string_view reported) {
    return static_cast<Enumeration>(reported_number(choices, reported));
}

}  // namespace

ArdenvueStatus status_values(const StatusLine& line, Nanoseconds time) {
    const auto text = [&](std::string_view key) { return line.value(key); };
    ArdenvueStatus status{};
    status.time_ns = time;
    std::snprintf(status.camera_model, sizeof status.camera_model, "%s", text("camera_model"));
    status.camera_detected = whole_number(text("camera_detected"), 0) != 0;
    status.ae = whole_number(text("ae"), 0) != 0;
    status.histogram = whole_number(text("histogram"), 0) != 0;
    status.camera_mode = choice<ArdenvueCameraMode>(all_camera_modes, text("camera_mode"));
    status.card_gigabytes = number(without_last(text("sd"), 'G'));
    status.shots_left = whole_number(text("shots_left"), 0);
    status.recording_seconds_left = seconds(text("rec_time_left"));
    status.recording_seconds = seconds(text("rec_time"));
    status.voltage = whole_number(text("voltage"), 0);
    status.battery_percent = whole_number(text("battery_level"), 0);
    status.battery_temperature = number(text("battery_temp"));
    status.photo_format = choice<ArdenvuePhotoFormat>(photo_formats, text("shot_mode"));
    status.photo_ratio = choice<ArdenvuePhotoRatio>(aspects, text("ratio"));
    status.video_width = whole_number(before(text("resolution"), 'x'), -1);
    status.video_height = whole_number(behind(text("resolution"), 'x'), -1);
    status.video_rate = whole_number(text("framerate"), -1);
    status.video_standard = choice<ArdenvueVideoStandard>(standards, text("video_std"));
    status.aperture = number(text("aperture"));
    status.shutter = number(text("shutter"));
    status.shutter_set = number(text("shutter_set"));
    status.iso = whole_number(text("iso"), 0);
    status.iso_set = text("iso_set") == std::string_view{"auto"} ? 0 : whole_number(text("iso_set"), -1);
    status.ev = number(text("ev"));
    status.exposure_program = choice<ArdenvueExposureProgram>(programs, text("image_mode"));
    status.color = choice<ArdenvueColor>(colors, text("color_mode"));
    status.white_balance = choice<ArdenvueWhiteBalance>(all_white_balances, text("wb"));
    status.white_balance_kelvin = whole_number(text("wb_temp"), 0);
    status.antiflicker = choice<ArdenvueAntiflicker>(antiflicker_modes, text("antiflicker"));
    status.sensor = whole_number(text("sensor"), 0);
    status.playback_id = whole_number(text("pl_id"), 0);
    return status;
}

}  // namespace client
