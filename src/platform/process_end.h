// The one way out of the process. Several threads may decide to end it at the same moment, with different
// codes: the first to claim the ending says its line, does its last work and exits; the others say nothing.
#pragma once

// Exit codes. Whatever started the process reads them, and starts it again.
constexpr int exit_failed = 1;           // start-up, the relay's accept, or the USB receiver thread
constexpr int exit_no_frame_memory = 2;  // the frame buffers can't be had
constexpr int exit_camera_silent = 2;    // no USB activity for more than five seconds
constexpr int exit_link_failed = 3;      // a USB read or the receive of a command datagram failed

// Claims the ending of the process, writes the line (none: nullptr) to the standard error stream, runs
// last_work (none: nullptr) on the calling thread and calls exit with the code. A caller that comes second
// never returns either: it waits, cancellable, since the first may wait for it to be gone, until the process
// is. Any thread.
[[noreturn]] void end_process(int code, const char* line = nullptr, void (*last_work)() = nullptr);
