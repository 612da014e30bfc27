#include "ctl/service_link.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "ctl/exit_codes.h"

namespace ctl {

namespace {

// The token of the file, or of the environment; empty: none. Throws std::runtime_error.
std::string read_token(const std::string& path) {
    if (path.empty()) {
        const char* const token = std::getenv("ARDENVUE_GATEWAY_TOKEN");
        return token == nullptr ? "" : token;
    }
    std::string token;
    if (!(std::ifstream{path} >> token)) {
        throw std::runtime_error("token file " + path + " can't be read");
    }
    return token;
}

std::uint16_t port_of(const ArdenvueLink* link) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(ardenvue_link_descriptor(link), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

// A link of this process alone, whose service is the gateway.
int open_by_gateway(const std::string& url, const BoardOptions& board, Link& link) try {
    ArdenvueLink* opened = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    if (ardenvue_link_open(&opened, nullptr, 0, reason, sizeof reason) != 0) {
        throw std::runtime_error(reason);
    }
    link.reset(opened);
    const GatewayAddress gateway{url.substr(0, url.find_last_not_of('/') + 1), read_token(board.token_file)};
    link.get_deleter().bridge = std::make_shared<GatewayBridge>(gateway, port_of(opened));
    return done;
} catch (const std::runtime_error& failure) {
    std::fprintf(stderr, "ardenvue-ctl: %s\n", failure.what());
    return unusable;
}

}  // namespace

int open_link(const BoardOptions& board, Link& link) {
    if (!board.gateway.empty()) {
        return open_by_gateway(board.gateway, board, link);
    }
    ArdenvueLink* opened = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    const int code =
        ardenvue_link_open(&opened, board.address.c_str(), board.status_port, reason, sizeof reason);
    link.reset(opened);
    if (code == 0) {
        return done;
    }
    const bool taken = code == ARDENVUE_ERROR_BUSY;
    if (const auto gateway = taken ? find_gateway(board.address, board.status_port) : std::nullopt) {
        return open_by_gateway(*gateway, board, link);
    }
    std::fprintf(stderr, "ardenvue-ctl: %s%s\n", reason,
                 taken ? ".\nStop it, or start the service with another destination port (-s) and give that "
                         "port here with --port; beside it, an ardenvue-gateway can hold the port for all."
                       : "");
    return taken ? port_taken : unusable;
}

void look_at_frames(const Link& link) {
    if (const auto& bridge = link.get_deleter().bridge) {
        ardenvue_link_saw_frame(link.get(), bridge->newest_frame());
    }
}

bool has_arrived(const Link& link) {
    const auto& bridge = link.get_deleter().bridge;
    return !bridge || bridge->wait_for_answers(1);
}

std::string silence_message(std::uint16_t port) {
    return "no status arrives on UDP port " + std::to_string(port) +
           ": the service does not run, sends elsewhere, or has no link to the remote controller";
}

}  // namespace ctl
