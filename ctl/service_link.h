// The client's end of the UDP link, as libardenvue gives it, with what the client says of it.
#pragma once

#include <memory>
#include <string>

#include "ardenvue/client.h"
#include "ctl/board_options.h"

namespace ctl {

struct CloseLink {
    void operator()(ArdenvueLink* link) const { ardenvue_link_close(link); }
};
using Link = std::unique_ptr<ArdenvueLink, CloseLink>;

// Binds the board's status port. Returns done, port_taken, or unusable, and has then said why.
int open_link(const BoardOptions& board, Link& link);

// What to say when no report comes.
std::string silence_message(std::uint16_t port);

}  // namespace ctl
