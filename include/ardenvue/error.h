// How the library says that something failed: a negative code, with a text of its own. Where more is to be
// said, the call that opens takes a buffer for it, and a handle keeps it.
#ifndef ARDENVUE_ERROR_H
#define ARDENVUE_ERROR_H

// What the shared library offers; everything else in it is hidden.
#define ARDENVUE_API __attribute__((visibility("default")))

// Room for any reason, its terminator included; a longer one is cut off.
#define ARDENVUE_REASON_SIZE 1024

#ifdef __cplusplus
extern "C" {
#endif

enum ArdenvueError {
    ARDENVUE_ERROR_ARGUMENT =
        -1,                       // a call that can't be meant so: a name, a number, a handle of another kind
    ARDENVUE_ERROR_MEMORY = -2,   // there is none left
    ARDENVUE_ERROR_SYSTEM = -3,   // a system call failed, as the reason says
    ARDENVUE_ERROR_TIMEOUT = -4,  // nothing came in time
    ARDENVUE_ERROR_INTERRUPTED = -5,    // a signal came while the call waited
    ARDENVUE_ERROR_NONE_YET = -6,       // what is asked for has not come yet
    ARDENVUE_ERROR_DATA = -7,           // bytes that are none of the service's
    ARDENVUE_ERROR_BUSY = -8,           // the status port is held by another process
    ARDENVUE_ERROR_COMMAND = -9,        // no such command, or no such value; nothing was sent
    ARDENVUE_ERROR_NOT_REPORTED = -10,  // no report of the camera shows this
    ARDENVUE_ERROR_GUARD = -11          // the guard of the stick inputs can't be started, or is gone
};

// A few words for a code, without a full stop: "nothing came in time". Lives as long as the library. Any
// thread.
ARDENVUE_API const char* ardenvue_error_text(int code);

#ifdef __cplusplus
}
#endif

#endif
