// The raw stream of the USB link, both ways, over TCP. The service serves one client at a time; a client that
// stops reading holds the service up, so whoever is connected must keep reading.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "ctl/seconds.h"
#include "platform/file_descriptor.h"

namespace ctl {

class RelayClient {
  public:
    // Connects to the relay of this machine; false with errno set when it can't.
    bool connect(const std::string& address, std::uint16_t port);

    enum class Outcome { bytes, nothing, closed };
    // Waits until the time given for bytes of the stream; they stay valid until the next call. closed: the
    // service ended the connection, or it failed.
    Outcome receive(std::span<const std::uint8_t>& bytes, Clock::time_point until);

    // Sends bytes towards the remote controller, in pieces of at most 512: one becomes one USB packet. Takes
    // in, and drops, what comes meanwhile. False when the connection failed.
    bool send(std::span<const std::uint8_t> bytes);

  private:
    FileDescriptor socket_;
    std::uint8_t buffer_[65'536];
};

}  // namespace ctl
