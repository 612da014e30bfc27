// A packet of the camera's link as one line of JSON.
#pragma once

#include <string>

#include "ardenvue/capture.h"

namespace ctl {

// What the packet is, as far as it is known: the name of a push, or the words of the command; "unknown", or
// "damaged" for bytes that are no packet.
std::string packet_name(const ArdenvuePiece& piece);

// {"time":…,"direction":…,"what":…,"sender":…,…,"bytes":"55 0E …"}, without a line end. What there is not is
// null: the time in a recording that has none, all but the bytes of what is no packet.
std::string packet_line(const ArdenvuePiece& piece, bool has_times);

}  // namespace ctl
