#include "ctl/relay_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "ctl/stop_signal.h"

namespace ctl {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t usb_packet_size = 512;

}  // namespace

bool RelayClient::connect(const std::string& address, std::uint16_t port) {
    sockaddr_in relay{};
    relay.sin_family = AF_INET;
    relay.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &relay.sin_addr) != 1) {
        errno = EINVAL;
        return false;
    }
    socket_ = FileDescriptor{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    const int on = 1;
    return socket_ && setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0 &&
           ::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&relay), sizeof relay) == 0;
}

RelayClient::Outcome RelayClient::receive(std::span<const std::uint8_t>& bytes, Clock::time_point until) {
    while (!stop_requested()) {
        const ssize_t size = recv(socket_.get(), buffer_, sizeof buffer_, MSG_DONTWAIT);
        if (size > 0) {
            bytes = {buffer_, static_cast<std::size_t>(size)};
            return Outcome::bytes;
        }
        if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
            return Outcome::closed;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        if (left <= 0ms) {
            break;
        }
        pollfd readable{socket_.get(), POLLIN, 0};
        poll(&readable, 1, static_cast<int>(std::min(left, std::chrono::milliseconds{60'000}).count()));
    }
    return Outcome::nothing;
}

bool RelayClient::send(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty() && !stop_requested()) {
        std::span<const std::uint8_t> dropped;
        while (true) {
            const Outcome outcome = receive(dropped, Clock::time_point{});
            if (outcome == Outcome::closed) {
                return false;
            }
            if (outcome == Outcome::nothing) {
                break;
            }
        }
        const auto piece = bytes.first(std::min(bytes.size(), usb_packet_size));
        const ssize_t sent = ::send(socket_.get(), piece.data(), piece.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(sent));
        } else if (errno == EAGAIN || errno == EINTR) {
            pollfd ready{socket_.get(), POLLIN | POLLOUT, 0};
            poll(&ready, 1, 100);
        } else {
            return false;
        }
    }
    return bytes.empty();
}

}  // namespace ctl
