#include "gateway/main_application.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace gateway {

void MainApplication::renew() {
    FileDescriptor fresh{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    sockaddr_in any{};
    any.sin_family = AF_INET;
    const bool is_here = (ntohl(target_.sin_addr.s_addr) >> 24) == IN_LOOPBACKNET;
    any.sin_addr.s_addr = htonl(is_here ? INADDR_LOOPBACK : INADDR_ANY);
    // Bound while the old one still is, so that the port is another one.
    if (!fresh || bind(fresh.get(), reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
        throw std::runtime_error(std::string{"a socket for the main application: "} + std::strerror(errno));
    }
    socket_ = std::move(fresh);
}

void MainApplication::send(std::span<const std::uint8_t> datagram) {
    if (!datagram.empty() && socket_) {
        sendto(socket_.get(), datagram.data(), datagram.size(), 0,
               reinterpret_cast<const sockaddr*>(&target_), sizeof target_);
    }
}

std::optional<std::span<const std::uint8_t>> MainApplication::receive(std::span<std::uint8_t> buffer) {
    while (socket_) {
        sockaddr_in source{};
        socklen_t source_size = sizeof source;
        const ssize_t size = recvfrom(socket_.get(), buffer.data(), buffer.size(), 0,
                                      reinterpret_cast<sockaddr*>(&source), &source_size);
        if (size > 0 && source.sin_addr.s_addr == target_.sin_addr.s_addr) {
            return buffer.first(static_cast<std::size_t>(size));
        }
        // A refusal is that of an earlier datagram: no main application listens now.
        if (size < 0 && errno != ECONNREFUSED && errno != EINTR) {
            break;
        }
    }
    return std::nullopt;
}

}  // namespace gateway
