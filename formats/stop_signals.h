// How the client and the simulator are told to end.
#pragma once

#include <csignal>

namespace formats {

// The handler is called for Ctrl-C, for SIGTERM, and when the terminal goes away, but then not under nohup.
// Main thread, before others are started.
inline void on_stop_signals(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    struct sigaction hangup {};
    sigaction(SIGHUP, nullptr, &hangup);
    if (hangup.sa_handler != SIG_IGN) {
        sigaction(SIGHUP, &action, nullptr);
    }
}

}  // namespace formats
