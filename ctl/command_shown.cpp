#include "ctl/command_shown.h"

#include <cmath>
#include <cstdlib>

namespace ctl {
namespace {

double number(std::string_view text) {
    return std::strtod(std::string{text}.c_str(), nullptr);
}

bool about(double value, double expected, double tolerance) {
    return std::abs(value - expected) <= tolerance;
}

// The gimbal faces back, towards the person flying, while its first angle is near -180 degrees.
bool faces_back(const GimbalFocus& report) {
    return report.attitude[0] >= -229 && report.attitude[0] <= -131;
}

}  // namespace

bool shown_by_pair(const CameraView&, const CameraView& now, const Command& command) {
    return now.line && now.line->value(command.row->reported_in) == command.reported.front();
}

// Reported with one decimal at most.
bool shown_by_aperture(const CameraView&, const CameraView& now, const Command& command) {
    return now.line && about(number(now.line->value("aperture")), number(command.arguments.front()), 0.06);
}

// Sent and reported in steps of 100 kelvin.
bool shown_by_color_temperature(const CameraView&, const CameraView& now, const Command& command) {
    const double kelvin = std::floor(number(command.arguments.front()) / 100) * 100;
    return now.line && now.line->value("wb") == "custom" &&
           about(number(now.line->value("wb_temp")), kelvin, 0.5);
}

bool shown_by_fewer_shots(const CameraView& before, const CameraView& now, const Command&) {
    return before.line && now.line &&
           number(now.line->value("shots_left")) < number(before.line->value("shots_left"));
}

bool shown_by_recording(const CameraView&, const CameraView& now, const Command&) {
    return now.gimbal_focus && now.gimbal_focus->recording;
}

bool shown_by_not_recording(const CameraView&, const CameraView& now, const Command&) {
    return now.gimbal_focus && !now.gimbal_focus->recording;
}

bool shown_by_lock(const CameraView&, const CameraView& now, const Command&) {
    return now.gimbal_focus && now.gimbal_focus->orientation_lock;
}

bool shown_by_unlock(const CameraView&, const CameraView& now, const Command&) {
    return now.gimbal_focus && !now.gimbal_focus->orientation_lock;
}

bool shown_by_facing_away(const CameraView&, const CameraView& now, const Command&) {
    return now.gimbal_focus && !faces_back(*now.gimbal_focus);
}

bool shown_by_facing_back(const CameraView&, const CameraView& now, const Command&) {
    return now.gimbal_focus && faces_back(*now.gimbal_focus);
}

bool shown_by_focus_mode(const CameraView&, const CameraView& now, const Command& command) {
    return now.gimbal_focus && now.gimbal_focus->focus_mode_text() == command.reported.front();
}

// Reported in thousandths, cut off.
bool shown_by_focus_point(const CameraView&, const CameraView& now, const Command& command) {
    return now.gimbal_focus && about(now.gimbal_focus->focus_point_x, number(command.arguments[0]), 0.0011) &&
           about(now.gimbal_focus->focus_point_y, number(command.arguments[1]), 0.0011);
}

bool shown_by_focus_position(const CameraView&, const CameraView& now, const Command& command) {
    return now.gimbal_focus && now.gimbal_focus->focus_max != 0 &&
           about(now.gimbal_focus->focus_position,
                 now.gimbal_focus->focus_max * number(command.arguments.front()) / 100, 1.0);
}

}  // namespace ctl
