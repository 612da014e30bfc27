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

std::string value(const ArdenvueLink* link, const char* key) {
    const std::string text = ardenvue_link_text(link, key);
    return text.empty() ? "-" : text;
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
    if (const auto age = state.age(ARDENVUE_STATUS_LINE)) {
        const ArdenvueLink* const line = state.link;
        text += *age <= live_limit ? std::string{} : format("  (%.1f s old)", in_seconds(*age));
        text += "  camera " + value(line, "camera_mode") + " iso " + value(line, "iso_set") + " shutter " +
                value(line, "shutter_set") + " f/" + value(line, "aperture") + " ev " + value(line, "ev") +
                " wb " + value(line, "wb") + "  battery " + value(line, "battery_level") + "%";
    }
    if (const ArdenvueGimbalFocus& record = state.record; record.time_ns != 0) {
        text += record.recording && state.has_line() ? "  REC " + value(state.link, "rec_time") : "";
        text += format("  gimbal %d %d %d%s", record.heading, record.tilt, record.roll,
                       record.orientation_lock ? " locked" : "");
        text += format("  focus %s %.2f %.2f", ardenvue_focus_type_text(record.focus_type), record.focus_x,
                       record.focus_y);
    }
    return text;
}

std::string played_text(const PlayedCommand& played) {
    const double seconds = in_seconds(played.ended - played.sent);
    switch (played.outcome) {
        case Outcome::waiting:
            return std::string{played.command.words} + ": sent, waiting";
        case Outcome::confirmed:
            return std::string{played.command.words} + format(": confirmed after %.1f s", seconds);
        case Outcome::not_reported:
            return std::string{played.command.words} + ": sent (no report shows it)";
        case Outcome::not_confirmed:
            return std::string{played.command.words} + format(": NOT CONFIRMED within %.1f s", seconds);
        case Outcome::not_sent:
            return std::string{played.command.words} + ": NOT SENT, the link is down";
    }
    return {};
}

}  // namespace ctl
