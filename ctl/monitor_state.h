// What the monitor shows, however it shows it.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "ardenvue/video.h"
#include "ctl/script_player.h"
#include "ctl/seconds.h"
#include "ctl/service_link.h"

namespace ctl {

// What is older than this is no longer live.
constexpr auto live_limit = std::chrono::milliseconds{1500};

struct MonitorState {
    ArdenvueLink* link = nullptr;
    ArdenvueGimbalFocus record{};  // the newest; without a time before the first
    Clock::time_point now{};
    std::optional<Clock::time_point> frame_time{};  // of the newest frame; none before the first
    std::string service;                            // "127.0.0.1:40000", empty before the first line
    std::string ring_problem;                       // empty while the ring is read
    std::string picture_size;                       // empty before the first picture
    ArdenvueVideoTotals ring{};
    double frames_per_second = 0;
    double bits_per_second = 0;
    double running_seconds = 0;
    const ScriptPlayer* player = nullptr;  // null without a script

    // While reports come and, once there was a picture, frames come too: a service whose remote controller
    // has fallen silent sends its last values on for some seconds.
    bool link_up() const { return ardenvue_link_state(link) == ARDENVUE_LINK_LIVE; }
    // How old the newest report of a kind is; none before the first.
    std::optional<Clock::duration> age(ArdenvueReport report) const {
        const auto age = std::chrono::nanoseconds{ardenvue_link_report_age(link, report)};
        return age < age.zero() ? std::nullopt : std::optional<Clock::duration>{age};
    }
    bool has_line() const { return ardenvue_link_report_time(link, ARDENVUE_STATUS_LINE) != 0; }
};

// "8.1 Mbit/s"
std::string bit_rate_text(double bits_per_second);

// One line that says it all, for a log or a pipe.
std::string summary_line(const MonitorState& state);

// "iso 400: confirmed after 0.8 s"
std::string played_text(const PlayedCommand& played);

}  // namespace ctl
