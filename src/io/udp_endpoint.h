// The sockets to the main application and of the one-way local notices: sending, receiving, and who is
// present. What is sent, where to and what a datagram means is the callers' concern; commands/mainapp_link
// fills the handlers.
#pragma once

#include <netinet/in.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

constexpr std::size_t datagram_capacity = 10'000;  // a longer datagram is cut to this

// Handler of one datagram: the received bytes, and their source. A zero byte stands behind the received ones,
// whatever their number, so they can be read as a text.
using DatagramHandler = void (*)(std::span<const std::uint8_t> datagram, const char* peer_host,
                                 std::uint16_t peer_port);
using PeerHandler = void (*)();

// What a link reports; an empty slot is skipped. Called on the UDP reader thread (lost: on the status
// thread).
struct UdpHandlers {
    DatagramHandler on_datagram;
    PeerHandler on_peer_found;
    PeerHandler on_peer_lost;
};

// Opens the command socket on any address and the given port (0: the kernel chooses) and starts its reader
// thread, which ends the process with code 3 when a receive fails or gives an empty datagram. timeout_ms is
// the silence after which the peer counts as lost; clear_before_read zeroes the receive buffer before each
// receive. Returns 0, or -1 when the socket can't be created or bound. Main thread, once.
int udp_endpoint_open(std::uint16_t port, std::uint32_t timeout_ms, bool clear_before_read,
                      const UdpHandlers& handlers);

// Sends one datagram from the command socket to an IPv4 dotted host and a port. Returns the result of sendto,
// -1 also for a host that is no IPv4 dotted text (there is no name lookup). Status thread.
long udp_endpoint_send_to(std::span<const std::uint8_t> data, const char* host, std::uint16_t port);

// Reports the peer as lost, once, when more than the silence timeout has passed since its last datagram.
// Status thread.
void udp_endpoint_check_timeout();

// Opens the unbound socket for local_notify_send. Main thread, once.
void local_notify_open();

// Sends the text, without a terminating zero, to 127.0.0.1 port 5255. Returns the result of sendto. Status
// thread.
long local_notify_send(const char* text);
