#pragma once

namespace ctl {

// From here on SIGINT, SIGTERM and SIGHUP only set a flag, interrupting any wait, so that a subcommand ends
// in order. A broken pipe is an error of the write, not a signal.
void catch_stop_signals();
bool stop_requested();

}  // namespace ctl
