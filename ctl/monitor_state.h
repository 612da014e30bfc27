// What the monitor shows, however it shows it.
#pragma once

#include <string>

#include "ctl/reports.h"
#include "ctl/ring_reader.h"
#include "ctl/script_player.h"

namespace ctl {

struct MonitorState {
    CameraView view;
    bool link_up = false;
    std::string service;       // "127.0.0.1:40000", empty before the first line
    std::string ring_problem;  // empty while the ring is read
    std::string picture_size;  // empty before the first picture
    RingTotals ring;
    double frames_per_second = 0;
    double bits_per_second = 0;
    double running_seconds = 0;
    const ScriptPlayer* player = nullptr;  // null without a script
};

// "8.1 Mbit/s"
std::string bit_rate_text(double bits_per_second);

// One line that says it all, for a log or a pipe.
std::string summary_line(const MonitorState& state);

// "iso 400: confirmed after 0.8 s"
std::string played_text(const PlayedCommand& played);

}  // namespace ctl
