// Sockets of this machine, 127.0.0.1: what the simulator, the tests and the benchmarks meet the service on.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "formats/ipv4.h"
#include "platform/file_descriptor.h"

namespace sim {

using formats::loopback;

// A connection to a TCP port, with a receive buffer of the given size unless 0; none when nobody listens.
inline FileDescriptor connect_to(std::uint16_t port, int receive_buffer = 0) {
    FileDescriptor fd{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (receive_buffer > 0) {
        setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    }
    const sockaddr_in address = loopback(port);
    if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return FileDescriptor{};
    }
    return fd;
}

// One datagram, with the port it came from.
struct Datagram {
    std::vector<std::uint8_t> bytes;
    std::uint16_t from;

    bool is_status_line() const { return !bytes.empty() && bytes[0] == 0x07; }
    std::string text() const { return {bytes.begin(), bytes.end()}; }
};

// A UDP socket of 127.0.0.1 on a port that the kernel chose.
class UdpSocket {
  public:
    UdpSocket() {
        sockaddr_in address = loopback(0);
        socklen_t length = sizeof address;
        if (!fd_ || bind(fd_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            getsockname(fd_.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::runtime_error("no UDP socket");
        }
        port_ = ntohs(address.sin_port);
    }

    std::uint16_t port() const { return port_; }

    // The next datagram; none in time.
    std::optional<Datagram> receive(std::chrono::milliseconds timeout) {
        pollfd entry{fd_.get(), POLLIN, 0};
        if (poll(&entry, 1, static_cast<int>(timeout.count())) <= 0) {
            return std::nullopt;
        }
        Datagram datagram{std::vector<std::uint8_t>(65'536), 0};
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t count = recvfrom(fd_.get(), datagram.bytes.data(), datagram.bytes.size(), 0,
                                       reinterpret_cast<sockaddr*>(&from), &length);
        if (count < 0) {
            return std::nullopt;
        }
        datagram.bytes.resize(static_cast<std::size_t>(count));
        datagram.from = ntohs(from.sin_port);
        return datagram;
    }

    // False when the kernel did not take it whole.
    bool send(std::span<const std::uint8_t> bytes, std::uint16_t port) {
        const sockaddr_in to = loopback(port);
        return sendto(fd_.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                      sizeof to) == static_cast<ssize_t>(bytes.size());
    }

  private:
    FileDescriptor fd_{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    std::uint16_t port_ = 0;
};

}  // namespace sim
