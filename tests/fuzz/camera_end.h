// The far end of the cable for the targets that send commands: a simulated camera, which has the packets'
// codes and sums a second time.
#pragma once

#include <string>
#include <vector>

namespace fuzz {

// Hands the datagram to the dispatcher and the packets that come of it to the camera, sequence numbers and
// all. Ends the run when a packet is none that the service may send: wrong sums, number, addresses, length or
// order. Returns what the camera understood, a packet each; one that carries a value without meaning begins
// with "COMPLAINT".
std::vector<std::string> dispatch(const std::string& datagram);

}  // namespace fuzz
