// The relay: one TCP client at a time sees the raw stream from the remote controller, from the moment it
// connects, and what it sends is written to the remote controller. Nothing is framed, buffered or
// interpreted.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>
#include <span>

// Called with each piece received from the client, 1 to 512 bytes, on the accept thread.
using TcpReceiveHandler = void (*)(const std::uint8_t* data, std::uint16_t length);

struct TcpRelay {
    int listen_fd;
    int client_fd;
    std::atomic<std::uint8_t> client_connected;  // 1 while a client is served
    TcpReceiveHandler on_receive;                // or null
    sockaddr_in address;
};

// Main thread, before the server is started.
void tcp_set_receive_handler(TcpReceiveHandler handler);

// Listens on the port on all interfaces and starts the accept thread. Returns 0, or 1 with the reason
// printed. Main thread, once.
int tcp_server_start(std::uint16_t port);

// Thread body: serves one client after the other; further ones wait in the backlog. Ends the process with
// code 1 when accepting fails.
void* tcp_accept_thread(void*);

// Any thread.
bool tcp_client_connected();

// Sends one piece to the client, if there is one. Waits while the kernel's buffer is full, but not more than
// 2 s in any 60 s for all clients together (WaitBudget): whoever needs more is dropped with a line, and those
// in the backlog stay there until a second of waiting is back. A piece that does not leave whole would tear a
// hole into the stream, so its connection counts as failed from then on: nothing more is sent to it, and the
// accept thread drops it. USB reader thread.
void tcp_relay_send(std::span<const std::uint8_t> data);

// The handler for what the client sends: writes each piece to the remote controller; pieces that the USB link
// does not take are dropped.
void relay_to_usb(const std::uint8_t* data, std::uint16_t length);
