#pragma once

#include <cstdint>

namespace ctl {

// Whether a socket of this machine listens on the port, from /proc/net/tcp (proc(5)); nobody notices.
bool is_tcp_port_listening(std::uint16_t port);

}  // namespace ctl
