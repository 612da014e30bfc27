#include "usb/tcp_relay.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <mutex>

#include "io/usb_link.h"
#include "platform/clock.h"
#include "platform/process_end.h"
#include "platform/thread.h"
#include "usb/wait_budget.h"

namespace {
constexpr timeval send_timeout = {.tv_sec = 2, .tv_usec = 0};
constexpr int send_buffer_size = 3'000'000;
constexpr int backlog = 16;
constexpr std::size_t receive_size = 512;
constexpr std::uint32_t keep_out_pause_ms = 100;

TcpRelay relay = {
    .listen_fd = -1, .client_fd = -1, .client_connected = {}, .on_receive = nullptr, .address = {}};

// Held for each send, and for the end of a connection: a descriptor is never closed, and its number never
// reused, under a send in progress.
std::mutex client_lock;
// What waiting is left for all clients; guarded by client_lock.
WaitBudget budget;
// The connection has lost a piece; guarded by client_lock for writing.
std::atomic<bool> client_failed;

int failed(const char* message) {
    std::fputs(message, stderr);
    return 1;
}

template <typename Value>
int set_option(int level, int name, const Value& value) {
    return setsockopt(relay.listen_fd, level, name, &value, sizeof value);
}

void begin_connection(int fd) {
    const std::lock_guard guard{client_lock};
    relay.client_fd = fd;
    client_failed = false;
    relay.client_connected = 1;
}

void end_connection() {
    const std::lock_guard guard{client_lock};
    relay.client_connected = 0;
    close(relay.client_fd);
    relay.client_fd = -1;
}

// Whoever waits in the backlog stays there while the clients before it have used up the waiting.
void keep_out() {
    const auto lets_in = [] {
        const std::lock_guard guard{client_lock};
        return budget.lets_in(WaitBudget::Clock::now());
    };
    while (!lets_in()) {
        sleep_ms(keep_out_pause_ms);
    }
}

// Waits until the client takes more, as long as that is allowed. False, with a line, when nothing is left.
bool wait_for_room() {
    const auto start = WaitBudget::Clock::now();
    const WaitBudget::Duration left = budget.left(start);
    if (left == WaitBudget::Duration::zero()) {
        std::fputs("TCP server: Client too slow for the stream, dropped\n", stderr);
        return false;
    }
    pollfd entry = {.fd = relay.client_fd, .events = POLLOUT, .revents = 0};
    poll(&entry, 1, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(left).count()));
    const auto end = WaitBudget::Clock::now();
    budget.spend(end, std::chrono::ceil<WaitBudget::Duration>(end - start));
    return true;
}

// Only waiting is counted, not the time a send takes that the kernel's buffer has room for. False when the
// connection failed or the waiting is used up.
bool send_whole(std::span<const std::uint8_t> data) {
    while (!data.empty()) {
        // Not a signal that would end the process, when the client has gone.
        const ssize_t sent = send(relay.client_fd, data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            data = data.subspan(static_cast<std::size_t>(sent));
        } else if (errno != EAGAIN || !wait_for_room()) {
            return false;
        }
    }
    return true;
}

// Passes on what the client sends until it goes.
void serve_client() {
    std::uint8_t buffer[receive_size];
    for (;;) {
        const ssize_t size = recv(relay.client_fd, buffer, sizeof buffer, 0);
        if (size < 1 || client_failed) {
            return;
        }
        if (relay.on_receive != nullptr) {
            relay.on_receive(buffer, static_cast<std::uint16_t>(size));
        }
    }
}
}  // namespace

void tcp_set_receive_handler(TcpReceiveHandler handler) {
    relay.on_receive = handler;
}

int tcp_server_start(std::uint16_t port) {
    relay.address = {};
    relay.address.sin_family = AF_INET;
    relay.address.sin_port = htons(port);
    relay.address.sin_addr.s_addr = htonl(INADDR_ANY);
    relay.listen_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (relay.listen_fd < 0) {
        return failed("TCP server: Could not create listen socket\n");
    }
    // Accepted connections take these over.
    set_option(SOL_SOCKET, SO_SNDTIMEO, send_timeout);
    set_option(SOL_SOCKET, SO_REUSEADDR, 1);
    set_option(IPPROTO_TCP, TCP_NODELAY, 1);
    if (set_option(SOL_SOCKET, SO_SNDBUF, send_buffer_size) < 0) {
        std::fputs("TCP server: can't set buffer size\n", stderr);
    }
    if (bind(relay.listen_fd, reinterpret_cast<const sockaddr*>(&relay.address), sizeof relay.address) < 0) {
        return failed("TCP server: Could not bind socket\n");
    }
    if (listen(relay.listen_fd, backlog) < 0) {
        return failed("TCP server: Could not open socket for listening\n");
    }
    pthread_t thread{};
    return start_thread(tcp_accept_thread, thread, "relay") == 0 ? 0 : 1;
}

void* tcp_accept_thread(void* /*argument*/) {
    for (;;) {
        std::fputs("TCP server: Waiting TCP client connection...\n", stderr);
        keep_out();
        sockaddr_in peer{};
        socklen_t peer_size = sizeof peer;
        const int fd = accept4(relay.listen_fd, reinterpret_cast<sockaddr*>(&peer), &peer_size, SOCK_CLOEXEC);
        if (fd < 0) {
            end_process(exit_failed, "TCP server: Could not open a socket to accept data\n");
        }
        char host[INET_ADDRSTRLEN];
        std::fprintf(stderr, "TCP server: Client connected with ip address: %s\n",
                     inet_ntop(AF_INET, &peer.sin_addr, host, sizeof host));
        begin_connection(fd);
        serve_client();
        end_connection();
    }
}

bool tcp_client_connected() {
    return relay.client_connected.load(std::memory_order_relaxed) != 0;
}

void tcp_relay_send(std::span<const std::uint8_t> data) {
    const std::lock_guard guard{client_lock};
    if (relay.client_connected == 0 || client_failed) {
        return;
    }
    if (!send_whole(data)) {
        client_failed = true;
        shutdown(relay.client_fd, SHUT_RDWR);
    }
}

void relay_to_usb(const std::uint8_t* data, std::uint16_t length) {
    usb_write_locked({data, length});
}
