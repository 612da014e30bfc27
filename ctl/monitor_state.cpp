#include "ctl/monitor_state.h"

#include <cstdarg>
#include <cstdio>

#include "ctl/seconds.h"

namespace ctl {
namespace {

__attribute__((format(printf, 1, 2))) std::string format(const char* pattern, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof text, pattern, arguments);
    va_end(arguments);
    return text;
}

std::string value(const StatusLine& line, std::string_view key) {
    const std::string_view text = line.value(key);
    return text.empty() ? "-" : std::string{text};
}

}  // namespace

std::string bit_rate_text(double bits_per_second) {
    return bits_per_second >= 1e6 ? format("%.1f Mbit/s", bits_per_second / 1e6)
                                  : format("%.0f kbit/s", bits_per_second / 1e3);
}

std::string summary_line(const MonitorState& state) {
    std::string text = format("%6.1f s  link %-4s", state.running_seconds, state.link_up() ? "up" : "down");
    if (state.ring_problem.empty()) {
        text += format("  video %s %.0f frames/s %s missed %llu",
                       state.picture_size.empty() ? "-" : state.picture_size.c_str(), state.frames_per_second,
                       bit_rate_text(state.bits_per_second).c_str(),
                       static_cast<unsigned long long>(state.ring.missed));
    } else {
        text += "  " + state.ring_problem;
    }
    if (const auto& line = state.view.line) {
        text += state.is_live(state.view.line_time)
                    ? std::string{}
                    : format("  (%.1f s old)", in_seconds(state.now - state.view.line_time));
        text += "  camera " + value(*line, "camera_mode") + " iso " + value(*line, "iso_set") + " shutter " +
                value(*line, "shutter_set") + " f/" + value(*line, "aperture") + " ev " + value(*line, "ev") +
                " wb " + value(*line, "wb") + "  battery " + value(*line, "battery_level") + "%";
    }
    if (const auto& record = state.view.gimbal_focus) {
        text += record->recording && state.view.line ? "  REC " + value(*state.view.line, "rec_time") : "";
        text += format("  gimbal %d %d %d%s", record->attitude[0], record->attitude[1], record->attitude[2],
                       record->orientation_lock ? " locked" : "");
        text += format("  focus %s %.2f %.2f", std::string{record->focus_mode_text()}.c_str(),
                       record->focus_point_x, record->focus_point_y);
    }
    return text;
}

std::string played_text(const PlayedCommand& played) {
    const double seconds = in_seconds(played.ended - played.sent);
    switch (played.outcome) {
        case Outcome::waiting:
            return played.command.words + ": sent, waiting";
        case Outcome::confirmed:
            return played.command.words + format(": confirmed after %.1f s", seconds);
        case Outcome::not_reported:
            return played.command.words + ": sent (no report shows it)";
        case Outcome::not_confirmed:
            return played.command.words + format(": NOT CONFIRMED within %.1f s", seconds);
        case Outcome::not_sent:
            return played.command.words + ": NOT SENT, the link is down";
    }
    return {};
}

}  // namespace ctl
