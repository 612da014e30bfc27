// The host's side of an enumeration, as a Linux or Android host does it: what the remote controller asks, and
// what the device must say for the remote controller to stream to it.
#pragma once

#include <string>
#include <vector>

#include "sim/cable/cable.h"

namespace sim {

// Waits for the device, plugs the cable in, reads descriptors and strings, selects configuration 2. Returns
// what was not as it must be, one line each: empty when all was.
std::vector<std::string> enumerate(Cable& cable, Speed speed = Speed::high,
                                   Milliseconds patience = Milliseconds{10'000});

}  // namespace sim
