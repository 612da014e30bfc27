#pragma once

// The process ends only here. Several threads may decide to end it at the same moment, with different codes:
// the first to claim the ending decides, and exit() runs once.

// Claims the ending of the process for the calling thread. Returns when the caller is the first; every later
// caller never returns from it: it waits, cancellable, until the process is gone. After the claim the thread
// can no longer be cancelled. Any thread.
void claim_process_end();

// Ends the process with the given exit code: claim_process_end, then exit. Any thread.
[[noreturn]] void end_process(int code);
