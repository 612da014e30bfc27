// What the monitor shows, however it shows it.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "ctl/reports.h"
#include "ctl/ring_reader.h"
#include "ctl/script_player.h"

namespace ctl {

// What is older than this is no longer live.
constexpr auto live_limit = std::chrono::milliseconds{1500};

struct MonitorState {
    CameraView view;
    Clock::time_point now{};
    std::optional<Clock::time_point> frame_time{};  // of the newest frame; none before the first
    std::string service;                            // "127.0.0.1:40000", empty before the first line
    std::string ring_problem;                       // empty while the ring is read
    std::string picture_size;                       // empty before the first picture
    RingTotals ring;
    double frames_per_second = 0;
    double bits_per_second = 0;
    double running_seconds = 0;
    const ScriptPlayer* player = nullptr;  // null without a script

    // While reports come and, once there was a picture, frames come too: a service whose remote controller
    // has fallen silent sends its last values on for some seconds.
    bool link_up() const {
        return view.line && is_live(view.line_time) && (!frame_time || is_live(*frame_time));
    }
    bool is_live(Clock::time_point time) const { return now - time <= live_limit; }
};

// "8.1 Mbit/s"
std::string bit_rate_text(double bits_per_second);

// One line that says it all, for a log or a pipe.
std::string summary_line(const MonitorState& state);

// "iso 400: confirmed after 0.8 s"
std::string played_text(const PlayedCommand& played);

}  // namespace ctl
