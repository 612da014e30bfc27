// The real main application behind the gateway: what the service sends goes to it, and what it sends goes to
// the service, byte for byte.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <span>

#include "platform/file_descriptor.h"

namespace gateway {

// Not for several threads at once.
class MainApplication {
  public:
    explicit MainApplication(const sockaddr_in& target) : target_{target} {}

    // The service has started anew: from now on its datagrams come from another port, as its own do. Throws
    // std::runtime_error when the kernel has no socket.
    void renew();
    // -1 before the first datagram.
    int descriptor() const { return socket_.get(); }

    // Sends a datagram of the service on; an empty one, which would end a service, never. One that the kernel
    // has no room for is lost, as it would be for the service itself.
    void send(std::span<const std::uint8_t> datagram);

    // What the main application sent, in order, without those that are empty or come from another host; valid
    // until the next call. Null when nothing is waiting.
    std::optional<std::span<const std::uint8_t>> receive(std::span<std::uint8_t> buffer);

  private:
    sockaddr_in target_;
    FileDescriptor socket_;
};

}  // namespace gateway
