// `ardenvue-sim run`: the service on a fresh simulated board, and the remote controller that it is plugged
// into.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "sim/session.h"

namespace sim {

struct RunOptions {
    SessionOptions session;
    std::string service;        // path of the executable
    std::string board_library;  // path of libardenvue-board.so
    std::string board_dir;      // where to write the file "env", or empty
    bool fixed_ports = false;
    std::vector<std::string> arguments;  // of the service
};

// Plays until told to stop. 0 when all was well, 1 when there were problems, 2 when it could not begin.
int run(const RunOptions& options, const std::atomic<bool>& stop);

// The value of the service's option -s, --dst-port among its arguments; the service's default without it.
std::string status_port(const std::vector<std::string>& arguments);

}  // namespace sim
