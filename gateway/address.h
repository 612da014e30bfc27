// Addresses as they stand on the command line: "127.0.0.1:8040", "[::1]:8040", "drone.local:40001".
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace gateway {

struct HostAndPort {
    std::string host;  // without the brackets of an IPv6 address
    std::uint16_t port;
};

// Null for what is none. The port may be missing where a default is given.
std::optional<HostAndPort> parse_host_and_port(std::string_view text, std::optional<std::uint16_t> port = {});

// An IPv4 or IPv6 address written in digits.
bool is_address(const std::string& host);

// An address that only this machine reaches.
bool is_loopback(const sockaddr_storage& address);

// The first address of the host; null, and the reason, when there is none. Asks the name service, so it is
// for the time of the start.
std::optional<sockaddr_storage> resolve(const HostAndPort& target, int family, std::string& reason);

// "127.0.0.1:8040", "[::1]:8040".
std::string address_text(const sockaddr_storage& address);
// Without the port.
std::string host_text(const sockaddr_storage& address);

}  // namespace gateway
