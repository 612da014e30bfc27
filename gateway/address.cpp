#include "gateway/address.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <charconv>
#include <cstring>

namespace gateway {
namespace {

const sockaddr_in& as_ipv4(const sockaddr_storage& address) {
    return reinterpret_cast<const sockaddr_in&>(address);
}

const sockaddr_in6& as_ipv6(const sockaddr_storage& address) {
    return reinterpret_cast<const sockaddr_in6&>(address);
}

}  // namespace

std::optional<HostAndPort> parse_host_and_port(std::string_view text, std::optional<std::uint16_t> port) {
    const bool is_bracketed = text.starts_with('[');
    const std::size_t host_end = is_bracketed ? text.find(']') : text.find(':');
    std::string_view host = text.substr(0, host_end);
    std::string_view rest = host_end == std::string_view::npos ? "" : text.substr(host_end);
    if (is_bracketed) {
        if (rest.empty()) {
            return std::nullopt;
        }
        host.remove_prefix(1);
        rest.remove_prefix(1);
    }
    HostAndPort result{std::string{host}, port.value_or(0)};
    if (!rest.empty()) {
        const auto parsed = std::from_chars(rest.data() + 1, rest.data() + rest.size(), result.port);
        if (rest[0] != ':' || parsed.ec != std::errc{} || parsed.ptr != rest.data() + rest.size()) {
            return std::nullopt;
        }
    }
    return host.empty() || (rest.empty() && !port) ? std::nullopt : std::optional{result};
}

bool is_address(const std::string& host) {
    in6_addr bytes{};
    return inet_pton(AF_INET, host.c_str(), &bytes) == 1 || inet_pton(AF_INET6, host.c_str(), &bytes) == 1;
}

bool is_loopback(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET6) {
        return IN6_IS_ADDR_LOOPBACK(&as_ipv6(address).sin6_addr);
    }
    return address.ss_family == AF_INET && (ntohl(as_ipv4(address).sin_addr.s_addr) >> 24) == IN_LOOPBACKNET;
}

std::optional<sockaddr_storage> resolve(const HostAndPort& target, int family, std::string& reason) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string port = std::to_string(target.port);
    if (const int code = getaddrinfo(target.host.c_str(), port.c_str(), &hints, &found); code != 0) {
        reason = target.host + ": " + gai_strerror(code);
        return std::nullopt;
    }
    sockaddr_storage address{};
    std::memcpy(&address, found->ai_addr, found->ai_addrlen);
    freeaddrinfo(found);
    return address;
}

std::string host_text(const sockaddr_storage& address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address.ss_family == AF_INET6) {
        const in6_addr& bytes = as_ipv6(address).sin6_addr;
        if (IN6_IS_ADDR_V4MAPPED(&bytes)) {
            inet_ntop(AF_INET, &bytes.s6_addr[12], text, sizeof text);
        } else {
            inet_ntop(AF_INET6, &bytes, text, sizeof text);
        }
    } else {
        inet_ntop(AF_INET, &as_ipv4(address).sin_addr, text, sizeof text);
    }
    return text;
}

std::string address_text(const sockaddr_storage& address) {
    const std::string host = host_text(address);
    const bool has_colons = host.find(':') != std::string::npos;
    const std::uint16_t port =
        ntohs(address.ss_family == AF_INET6 ? as_ipv6(address).sin6_port : as_ipv4(address).sin_port);
    return (has_colons ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

}  // namespace gateway
