// Stick inputs: what moves the gimbal, in a shared record that the service reads every 20 ms.
//
// A writer that died with a deflection in the record would look like a stick that is held. So each open
// handle has a guard, a small process of its own (libardenvue's ardenvue-stick-guard), which writes zeros as
// soon as the process with the handle is gone, however it ended, and when ardenvue_sticks_set was not called
// for 300 ms while an input is not 0: a stopped process, or a loop that hangs. What no guard can help
// against: SIGKILL to guard and process in the same moment, as when a whole control group is killed.
#ifndef ARDENVUE_STICKS_H
#define ARDENVUE_STICKS_H

#include <stddef.h>

#include "ardenvue/error.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ArdenvueSticks ArdenvueSticks;

// Inputs are held within this, on both sides: none of them wraps on its way to the gimbal then, whatever the
// movement mode (the largest factor is 2400, the numbers sent have 16 bits).
#define ARDENVUE_STICK_LIMIT 13.65

// The inputs' meaning is ardenvue_set_movement's. While an input is not 0, ardenvue_sticks_set must be called
// at least this often.
#define ARDENVUE_STICK_PATIENCE_MS 300

// Opens the record, makes it where it is missing and gives it its size, zeroes the inputs and starts the
// guard. NULL is the service's record and the installed guard. The service takes only a record of root's or
// of its own user, so a record of another user is refused here too. ARDENVUE_ERROR_SYSTEM,
// ARDENVUE_ERROR_GUARD, ARDENVUE_ERROR_MEMORY; the reason, which may be NULL, says more. Any thread; some
// milliseconds. The calling process has a child for a moment.
ARDENVUE_API int ardenvue_sticks_open(ArdenvueSticks** sticks, const char* record_name,
                                      const char* guard_path, char* reason, size_t reason_size);

// Writes the three inputs, each held within the limit; what is no number is 0. Returns 0, or 1 once after the
// guard had to write zeros since the last call: this process was too slow. ARDENVUE_ERROR_GUARD: the guard is
// gone, so nothing but zeros is written any more; close the handle and open another. ARDENVUE_ERROR_SYSTEM:
// the record can't be written. A record that was unlinked or made shorter by others is made anew. One thread
// at a time; three system calls.
ARDENVUE_API int ardenvue_sticks_set(ArdenvueSticks* sticks, double input_0, double input_1, double input_2);

// Zeroes the inputs and sends the guard home. NULL is allowed.
ARDENVUE_API void ardenvue_sticks_close(ArdenvueSticks* sticks);

#ifdef __cplusplus
}
#endif

#endif
