#include "state/status_line.h"

#include <cstdio>
#include <string_view>
#include <type_traits>
#include <utility>

#include "ardenvue.h"
#include "platform/relaxed.h"

namespace {

// The text so far. Each print goes to its end and is then added to it.
struct Line {
    char* text;
    std::size_t length;

    char* end() const { return text + length; }
    std::size_t room() const { return status_line_capacity - length; }
    void add(int printed) { length += static_cast<std::size_t>(printed); }
};

struct Pair {
    const char* key;
    std::size_t value_length;  // of the longest value
    void (*print)(Line& line, const char* key, const TelemetryState& telemetry);
};

template <auto field>
using FieldType = std::remove_reference_t<decltype(std::declval<TelemetryState&>().*field)>;

// The longest text in a field, without its terminator.
template <auto field>
constexpr std::size_t longest_text = std::extent_v<FieldType<field>> - 1;

// A pair whose value is one field as it is: a text, or a number printed as an int.
template <auto field>
constexpr Pair pair(const char* key) {
    if constexpr (std::is_array_v<FieldType<field>>) {
        return {key, longest_text<field>, [](Line& line, const char* name, const TelemetryState& telemetry) {
                    line.add(std::snprintf(line.end(), line.room(), "%s=%s,", name,
                                           load_text(telemetry.*field).text));
                }};
    } else {
        static_assert(std::is_integral_v<FieldType<field>>);
        return {key, std::size("-2147483648") - 1,
                [](Line& line, const char* name, const TelemetryState& telemetry) {
                    line.add(std::snprintf(line.end(), line.room(), "%s=%d,", name,
                                           static_cast<int>(load_relaxed(telemetry.*field))));
                }};
    }
}

void print_battery_temperature(Line& line, const char* key, const TelemetryState& telemetry) {
    line.add(std::snprintf(line.end(), line.room(), "%s=%1.1f,", key,
                           load_relaxed(telemetry.battery_temperature) * 0.1));
}

void print_format(Line& line, const char* key, const TelemetryState& telemetry) {
    line.add(std::snprintf(line.end(), line.room(), "%s=%s@%s,", key,
                           load_text(telemetry.resolution_text).text,
                           load_text(telemetry.frame_rate_text).text));
}

void print_wb_temperature(Line& line, const char* key, const TelemetryState& telemetry) {
    line.add(std::snprintf(line.end(), line.room(), "%s=%1.0f,", key,
                           static_cast<double>(load_relaxed(telemetry.wb_temperature))));
}

void print_histogram_validity(Line& line, const char* key, const TelemetryState& telemetry) {
    line.add(std::snprintf(line.end(), line.room(), "%s=%d,", key,
                           load_relaxed(telemetry.histogram_time_ms) != 0 ? 1 : 0));
}

using T = TelemetryState;

constexpr Pair pairs[] = {
    pair<&T::camera_detected>("camera_detected"),
    pair<&T::camera_model>("camera_model"),
    pair<&T::camera_mode_text>("camera_mode"),
    pair<&T::sd_text>("sd"),
    pair<&T::shots_left>("shots_left"),
    pair<&T::record_left_text>("rec_time_left"),
    pair<&T::record_time_text>("rec_time"),
    pair<&T::voltage>("voltage"),
    pair<&T::battery_level>("battery_level"),
    {"battery_temp", std::size("6553.5") - 1, print_battery_temperature},
    pair<&T::photo_format_text>("shot_mode"),
    pair<&T::resolution_text>("resolution"),
    pair<&T::frame_rate_text>("framerate"),
    {"format", longest_text<&T::resolution_text> + 1 + longest_text<&T::frame_rate_text>, print_format},
    pair<&T::ae_flag>("ae"),
    pair<&T::aperture_text>("aperture"),
    pair<&T::shutter_text>("shutter"),
    pair<&T::shutter_set_text>("shutter_set"),
    pair<&T::iso>("iso"),
    pair<&T::iso_set_text>("iso_set"),
    pair<&T::ev_text>("ev"),
    pair<&T::exposure_mode_text>("image_mode"),
    pair<&T::color_mode_text>("color_mode"),
    pair<&T::white_balance_text>("wb"),
    {"wb_temp", 1 + 39, print_wb_temperature},  // the largest float has 39 digits
    pair<&T::aspect_text>("ratio"),
    pair<&T::sensor>("sensor"),
    pair<&T::video_standard_text>("video_std"),
    pair<&T::antiflicker_text>("antiflicker"),
    {"histogram", 1, print_histogram_validity},
    pair<&T::playback_state_text>("pl_state"),
    pair<&T::playback_id>("pl_id"),
    pair<&T::playback_duration_text>("pl_dur"),
    pair<&T::playback_time_text>("pl_time"),
};
static_assert(std::size(pairs) == 34);

constexpr std::size_t longest_line() {
    std::size_t length = 1;  // the type byte
    for (const Pair& pair : pairs) {
        length += std::string_view{pair.key}.size() + std::size("=,") - 1 + pair.value_length;
    }
    return length;
}
static_assert(longest_line() < status_line_capacity, "no line may reach the end of its buffer");

}  // namespace

std::size_t write_status_line(const TelemetryState& telemetry, char (&text)[status_line_capacity]) {
    Line line{text, 0};
    line.add(std::snprintf(line.end(), line.room(), "%c", ardenvue::status_line_type));
    for (const Pair& pair : pairs) {
        pair.print(line, pair.key, telemetry);
    }
    return line.length;
}
