#include "io/udp_endpoint.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>

#include "ardenvue.h"
#include "platform/clock.h"
#include "platform/file_descriptor.h"
#include "platform/process_end.h"
#include "platform/relaxed.h"
#include "platform/thread.h"

namespace {

// A packet leaves with each read, so commands may come faster than they go; the kernel drops what it has no
// room for, without a word. Twice this (socket(7)) holds some 5,000 commands of 60 bytes, at the 768 bytes
// that the kernel counts for one.
constexpr int command_buffer_size = 2'000'000;

// One more byte for the zero behind a datagram of full size.
std::uint8_t receive_buffer[datagram_capacity + 1];

// The command socket. Peer and last receive time are written by the UDP reader and the status thread.
struct UdpEndpoint {
    std::uint8_t* buffer = receive_buffer;
    std::uint16_t buffer_capacity = datagram_capacity;
    bool clear_before_read;
    int socket = -1;
    sockaddr_in bound_address;
    sockaddr_in source;
    socklen_t source_length;
    sockaddr_in destination;  // apart from the source: a receive may be in progress while the status is sent
    char peer_host[INET_ADDRSTRLEN];
    std::uint16_t peer_port;
    std::atomic<std::uint32_t> last_receive_ms;  // 0: no peer is present
    std::uint32_t timeout_ms;
    pthread_t reader;
    UdpHandlers handlers;
};

struct LocalNotifySocket {
    int socket = -1;
    sockaddr_in destination;
};

UdpEndpoint endpoint;
LocalNotifySocket local_notify;

sockaddr_in ipv4_address(in_addr host, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr = host;
    address.sin_port = htons(port);
    return address;
}

ssize_t send_to(int socket, const void* data, std::size_t size, const sockaddr_in& to) {
    return sendto(socket, data, size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

std::size_t receive_datagram() {
    if (endpoint.clear_before_read) {
        std::memset(endpoint.buffer, 0, endpoint.buffer_capacity);
    }
    endpoint.source_length = sizeof endpoint.source;
    const ssize_t received = recvfrom(endpoint.socket, endpoint.buffer, endpoint.buffer_capacity, 0,
                                      reinterpret_cast<sockaddr*>(&endpoint.source), &endpoint.source_length);
    if (received <= 0) {
        end_process(exit_link_failed, "UDP read failed\n");
    }
    const auto length = static_cast<std::size_t>(received);
    endpoint.buffer[length] = 0;
    return length;
}

void* udp_reader(void*) {
    const UdpHandlers& handlers = endpoint.handlers;
    for (;;) {
        const std::size_t length = receive_datagram();
        char host[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &endpoint.source.sin_addr, host, sizeof host);
        const std::uint16_t port = ntohs(endpoint.source.sin_port);
        store_text(endpoint.peer_host, host);
        store_relaxed(endpoint.peer_port, port);
        const bool found = endpoint.last_receive_ms.exchange(now_ms(), std::memory_order_relaxed) == 0;
        if (found && handlers.on_peer_found != nullptr) {
            handlers.on_peer_found();
        }
        if (handlers.on_datagram != nullptr) {
            handlers.on_datagram({endpoint.buffer, length}, host, port);
        }
    }
}

}  // namespace

int udp_endpoint_open(std::uint16_t port, std::uint32_t timeout_ms, bool clear_before_read,
                      const UdpHandlers& handlers) {
    endpoint.timeout_ms = timeout_ms;
    endpoint.clear_before_read = clear_before_read;
    endpoint.handlers = handlers;
    store_text(endpoint.peer_host, "");
    store_relaxed(endpoint.peer_port, 0);
    endpoint.last_receive_ms = 0;
    FileDescriptor opened{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP)};
    // Beyond net.core.rmem_max only where the process has CAP_NET_ADMIN anyway.
    if (setsockopt(opened.get(), SOL_SOCKET, SO_RCVBUFFORCE, &command_buffer_size, sizeof(int)) != 0) {
        setsockopt(opened.get(), SOL_SOCKET, SO_RCVBUF, &command_buffer_size, sizeof(int));
    }
    fcntl(opened.get(), F_SETFL, fcntl(opened.get(), F_GETFL) & ~O_NONBLOCK);
    endpoint.bound_address = ipv4_address({.s_addr = htonl(INADDR_ANY)}, port);
    if (bind(opened.get(), reinterpret_cast<const sockaddr*>(&endpoint.bound_address),
             sizeof endpoint.bound_address) != 0) {
        return -1;
    }
    endpoint.socket = opened.get();
    if (start_thread(udp_reader, endpoint.reader, "udp-reader") != 0) {
        endpoint.socket = -1;
        return -1;
    }
    opened.release();
    return 0;
}

long udp_endpoint_send_to(std::span<const std::uint8_t> data, const char* host, std::uint16_t port) {
    in_addr address{};
    if (inet_aton(host, &address) == 0) {
        return -1;
    }
    endpoint.destination = ipv4_address(address, port);
    return send_to(endpoint.socket, data.data(), data.size(), endpoint.destination);
}

void udp_endpoint_check_timeout() {
    // The time of the last datagram is read first: one that arrives meanwhile can't lie in the future.
    std::uint32_t last = endpoint.last_receive_ms.load(std::memory_order_relaxed);
    if (last == 0 || now_ms() - last <= endpoint.timeout_ms) {
        return;
    }
    // A datagram that arrives in this very moment has ended the silence: no loss then.
    if (!endpoint.last_receive_ms.compare_exchange_strong(last, 0, std::memory_order_relaxed)) {
        return;
    }
    store_text(endpoint.peer_host, "");
    store_relaxed(endpoint.peer_port, 0);
    if (endpoint.handlers.on_peer_lost != nullptr) {
        endpoint.handlers.on_peer_lost();
    }
}

void local_notify_open() {
    local_notify.socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    local_notify.destination =
        ipv4_address({.s_addr = htonl(INADDR_LOOPBACK)}, ardenvue::recording_notice_port);
}

long local_notify_send(const char* text) {
    return send_to(local_notify.socket, text, std::strlen(text), local_notify.destination);
}
