// The client's end of the UDP link, as libardenvue gives it, with what the client says of it.
#pragma once

#include <memory>
#include <string>

#include "ardenvue/client.h"
#include "ctl/board_options.h"
#include "ctl/gateway_bridge.h"

namespace ctl {

// A link may come by way of a gateway, which ends with it.
struct CloseLink {
    std::shared_ptr<GatewayBridge> bridge;

    void operator()(ArdenvueLink* link) const { ardenvue_link_close(link); }
};
using Link = std::unique_ptr<ArdenvueLink, CloseLink>;

// Binds the board's status port; where a gateway is named, or holds that port, a link by way of it. Returns
// done, port_taken, or unusable, and has then said why.
int open_link(const BoardOptions& board, Link& link);

// Tells the link of the frames that the gateway sees; nothing where there is none.
void look_at_frames(const Link& link);

// What was sent has arrived: always, but by way of a gateway, which may refuse it; has then said why.
bool has_arrived(const Link& link);

// What to say when no report comes.
std::string silence_message(std::uint16_t port);

}  // namespace ctl
