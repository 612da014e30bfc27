// How the camera's state shows that a command was carried out; one function for each way of showing.
#pragma once

#include "client/command_words.h"

namespace client {

// The status line's pair that the row names reads what the first argument is called there.
bool shown_by_pair(const Seen& now, const Awaited& awaited);
bool shown_by_aperture(const Seen& now, const Awaited& awaited);
bool shown_by_color_temperature(const Seen& now, const Awaited& awaited);
bool shown_by_fewer_shots(const Seen& now, const Awaited& awaited);

// The gimbal and focus record.
bool shown_by_recording(const Seen& now, const Awaited& awaited);
bool shown_by_not_recording(const Seen& now, const Awaited& awaited);
bool shown_by_lock(const Seen& now, const Awaited& awaited);
bool shown_by_unlock(const Seen& now, const Awaited& awaited);
bool shown_by_facing_away(const Seen& now, const Awaited& awaited);
bool shown_by_facing_back(const Seen& now, const Awaited& awaited);
bool shown_by_focus_mode(const Seen& now, const Awaited& awaited);
bool shown_by_focus_point(const Seen& now, const Awaited& awaited);
bool shown_by_focus_position(const Seen& now, const Awaited& awaited);

}  // namespace client
