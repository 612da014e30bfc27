// Raw inputs of the remote controller, published in shared memory by another process, turned into gimbal
// motion.
#pragma once

#include <cstdint>

#include "ardenvue.h"

enum class MovementMode : std::uint32_t {
    relative = 0,  // the inputs move the gimbal
    absolute = 1,  // the inputs are its position
};

// Chooses what the inputs mean, from the next pass of the gimbal motion thread on. UDP reader thread.
void set_movement_mode(MovementMode mode);

// Opens "/shared_rc_raw" and starts the gimbal motion thread. Returns 0, or -1 when the thread can't be
// started. Main thread, once.
int start_rc_poller();

// Opens or creates the shared record, with a line that says which. Returns it, or null when it can't be had.
// Main thread, then gimbal motion thread.
ardenvue::RcRawState* open_rc_raw_state();

// The body of the gimbal motion thread: every 20 ms while the USB link is up, a motion packet while an input
// is away from 0, three stop packets when all have returned, and the hold packet while the orientation lock
// is on and nothing moves. With the link down it only waits. Never returns.
void* rc_poller_thread(void*);
