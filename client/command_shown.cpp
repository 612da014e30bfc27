#include "client/command_shown.h"

#include <cmath>

#include "formats/nearest_word.h"

namespace client {
namespace {

// What is no number is near no other.
double number(std::string_view text) {
    return formats::number_of(text).value_or(std::numeric_limits<double>::quiet_NaN());
}

bool about(double value, double expected, double tolerance) {
    return std::abs(value - expected) <= tolerance;
}

// The gimbal faces back, towards the person flying, while its first angle is near -180 degrees.
bool faces_back(const ArdenvueGimbalFocus& report) {
    return report.heading >= -229 && report.heading <= -131;
}

}  // namespace

bool shown_by_pair(const Seen& now, const Awaited& awaited) {
    return now.line != nullptr && now.line->value(awaited.row->reported_in) == awaited.reported;
}

// Reported with one decimal at most.
bool shown_by_aperture(const Seen& now, const Awaited& awaited) {
    return now.line != nullptr && about(number(now.line->value("aperture")), awaited.numbers[0], 0.06);
}

// Sent and reported in steps of 100 kelvin.
bool shown_by_color_temperature(const Seen& now, const Awaited& awaited) {
    const double kelvin = std::floor(awaited.numbers[0] / 100) * 100;
    return now.line != nullptr && now.line->value("wb") == std::string_view{"custom"} &&
           about(number(now.line->value("wb_temp")), kelvin, 0.5);
}

bool shown_by_fewer_shots(const Seen& now, const Awaited& awaited) {
    return now.line != nullptr && number(now.line->value("shots_left")) < awaited.shots_before;
}

bool shown_by_recording(const Seen& now, const Awaited&) {
    return now.gimbal_focus != nullptr && now.gimbal_focus->recording;
}

bool shown_by_not_recording(const Seen& now, const Awaited&) {
    return now.gimbal_focus != nullptr && !now.gimbal_focus->recording;
}

bool shown_by_lock(const Seen& now, const Awaited&) {
    return now.gimbal_focus != nullptr && now.gimbal_focus->orientation_lock;
}

bool shown_by_unlock(const Seen& now, const Awaited&) {
    return now.gimbal_focus != nullptr && !now.gimbal_focus->orientation_lock;
}

bool shown_by_facing_away(const Seen& now, const Awaited&) {
    return now.gimbal_focus != nullptr && !faces_back(*now.gimbal_focus);
}

bool shown_by_facing_back(const Seen& now, const Awaited&) {
    return now.gimbal_focus != nullptr && faces_back(*now.gimbal_focus);
}

bool shown_by_focus_mode(const Seen& now, const Awaited& awaited) {
    return now.gimbal_focus != nullptr &&
           ardenvue_focus_type_text(now.gimbal_focus->focus_type) == awaited.reported;
}

// Reported in thousandths, cut off.
bool shown_by_focus_point(const Seen& now, const Awaited& awaited) {
    return now.gimbal_focus != nullptr && about(now.gimbal_focus->focus_x, awaited.numbers[0], 0.0011) &&
           about(now.gimbal_focus->focus_y, awaited.numbers[1], 0.0011);
}

bool shown_by_focus_position(const Seen& now, const Awaited& awaited) {
    return now.gimbal_focus != nullptr && now.gimbal_focus->focus_max != 0 &&
           about(now.gimbal_focus->focus_position, now.gimbal_focus->focus_max * awaited.numbers[0] / 100,
                 1.0);
}

}  // namespace client
