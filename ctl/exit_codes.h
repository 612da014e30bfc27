// What a script learns from the exit code; every subcommand keeps to these, and --help lists them.
#pragma once

#include "formats/command_line.h"

namespace ctl {

enum ExitCode : int {
    done = 0,
    unusable = 2,       // a file, shared-memory object or connection that can't be used
    port_taken = 3,     // the status port is held by another process
    silent = 4,         // nothing arrived in time: no service, or no link to the remote controller
    not_confirmed = 5,  // sent, but the camera's state did not show it in time
    not_reported = 6,   // sent, and no report shows this setting, so there was nothing to wait for
    different = 7,      // what arrived is not what was sent
    not_installed = 8,  // a program that this takes, as a decoder for a picture
    bad_usage = formats::wrong_usage,  // options, or words that are no command; nothing was sent
};

constexpr const char* exit_code_help =
    "Exit codes:\n"
    "  0  done\n"
    "  2  a file, shared-memory object or connection can't be used\n"
    "  3  the status port is held by another process\n"
    "  4  nothing arrived in time: no service, or no link to the remote controller\n"
    "  5  sent, but the camera's state did not show it in time\n"
    "  6  sent, and no report shows this setting\n"
    "  7  what arrived is not what was sent\n"
    "  8  a program that decodes pictures is not installed\n"
    " 64  wrong options, or words that are no command; nothing was sent\n";

}  // namespace ctl
