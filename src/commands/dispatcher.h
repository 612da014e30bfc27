// Commands of the main application: "!" and one JSON object per datagram.
#pragma once

// Runs the one operation that the datagram, a zero-terminated text, names. What is no command, or lacks a
// member that its operation needs, does nothing and writes nothing. Member names are matched whatever their
// case, the first of several alike counts; values are matched exactly. UDP reader thread.
void command_dispatch(const char* datagram);
