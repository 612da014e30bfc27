#pragma once

#include <string>

#include "ctl/monitor_state.h"
#include "ctl/video_feed.h"

namespace ctl {

// Writes what the monitor saw as a JSON object, for a script to read: each command with its times, the frames
// read from the ring, the datagrams. False with errno set when the file can't be written.
bool write_report(const std::string& path, const MonitorState& state, const VideoFeed& video,
                  Clock::time_point start);

}  // namespace ctl
