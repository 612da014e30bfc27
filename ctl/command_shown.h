// How the camera's state shows that a command was carried out; one function for each way of showing.
#pragma once

#include "ctl/command_words.h"

namespace ctl {

// The status line's pair that the row names reads what the first argument is called there.
bool shown_by_pair(const CameraView& before, const CameraView& now, const Command& command);
bool shown_by_aperture(const CameraView& before, const CameraView& now, const Command& command);
bool shown_by_color_temperature(const CameraView& before, const CameraView& now, const Command& command);
bool shown_by_fewer_shots(const CameraView& before, const CameraView& now, const Command& command);

// The gimbal and focus record.
bool shown_by_recording(const CameraView& before, const CameraView& now, const Command& command);
bool shown_by_not_recording(const CameraView& before, const CameraView& now, const Command& command);
bool shown_by_lock(const CameraView& before, const CameraView& now, const Command& command);
bool shown_by_unlock(const CameraView& before, const CameraView& now, const Command& command);
bool shown_by_facing_away(const CameraView& before, const CameraView& now, const Command& command);
bool shown_by_facing_back(const CameraView& before, const CameraView& now, const Command& command);
bool shown_by_focus_mode(const CameraView& before, const CameraView& now, const Command& command);
bool shown_by_focus_point(const CameraView& before, const CameraView& now, const Command& command);
bool shown_by_focus_position(const CameraView& before, const CameraView& now, const Command& command);

}  // namespace ctl
