#include "ctl/service_link.h"

#include <cstdio>

#include "ctl/exit_codes.h"

namespace ctl {

int open_link(const BoardOptions& board, Link& link) {
    ArdenvueLink* opened = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    const int code =
        ardenvue_link_open(&opened, board.address.c_str(), board.status_port, reason, sizeof reason);
    link.reset(opened);
    if (code == 0) {
        return done;
    }
    const bool taken = code == ARDENVUE_ERROR_BUSY;
    std::fprintf(stderr, "ardenvue-ctl: %s%s\n", reason,
                 taken ? ".\nStop it, or start the service with another destination port (-s) and give that "
                         "port here with --port."
                       : "");
    return taken ? port_taken : unusable;
}

std::string silence_message(std::uint16_t port) {
    return "no status arrives on UDP port " + std::to_string(port) +
           ": the service does not run, sends elsewhere, or has no link to the remote controller";
}

}  // namespace ctl
