// The state and the commands of a service by way of a gateway, over HTTP. To the link of this process the
// bridge is the service: it sends the datagrams that the gateway got, and hands on what the link sends.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace ctl {

struct GatewayAddress {
    std::string url;    // "http://board:8040"
    std::string token;  // empty: none
};

// The gateway that holds the status port of this machine, asked there; null when whoever holds it is none.
std::optional<std::string> find_gateway(const std::string& address, std::uint16_t status_port);

class GatewayBridge {
  public:
    // Serves a link that is bound to the port of 127.0.0.1, in two threads. Throws std::runtime_error with
    // what is to be told: the gateway doesn't answer, or not to us. A connection that breaks later is taken
    // up again.
    GatewayBridge(const GatewayAddress& gateway, std::uint16_t port);
    ~GatewayBridge();
    GatewayBridge(const GatewayBridge&) = delete;
    GatewayBridge& operator=(const GatewayBridge&) = delete;

    // When the gateway saw its newest frame, CLOCK_MONOTONIC of this machine; 0: none yet.
    std::int64_t newest_frame() const;

    const std::string& url() const;

    // Waits until the gateway has answered to so many commands. False when it refused one, or does not
    // answer; has then said why.
    bool wait_for_answers(unsigned count);

  private:
    class Threads;
    std::unique_ptr<Threads> threads_;
};

}  // namespace ctl
