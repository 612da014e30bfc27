// IPv4 socket addresses, as ip(7) has them.
#pragma once

#include <netinet/in.h>

#include <cstdint>

namespace formats {

// 127.0.0.1 with a port, which is in the machine's byte order.
inline sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

// The same address and port.
inline bool is_same(const sockaddr_in& a, const sockaddr_in& b) {
    return a.sin_addr.s_addr == b.sin_addr.s_addr && a.sin_port == b.sin_port;
}

}  // namespace formats
