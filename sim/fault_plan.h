// The faults that a run is asked for.
#pragma once

#include <string>
#include <vector>

#include "sim/remote/source.h"

namespace sim {

// Something that stops the stream for a while.
struct Interruption {
    enum class Kind {
        unplug,   // the cable is pulled and plugged in again
        silence,  // nothing is sent
    };
    Kind kind;
    Time at;  // since the stream began
    Time length;
};

struct FaultPlan {
    StreamFaults stream;
    bool full_speed = false;                  // the host enumerates at full speed and stays there
    std::vector<Interruption> interruptions;  // in order of time
};

// Adds one fault to the plan: "garbage", "garbage:BYTES", "corrupt", "full-speed", "unplug@SECOND",
// "unplug@SECOND:SECONDS", "silence@SECOND:SECONDS". Returns what is wrong with the text, nothing when it is
// right.
std::string add_fault(const std::string& text, FaultPlan& plan);

}  // namespace sim
