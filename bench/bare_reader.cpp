// The least that a device can do with the stream: the same device on the same endpoint files, whose OUT
// endpoint is read 512 bytes at a time and the bytes thrown away, or, as "bare_reader copy", sent to a client
// that connects where the relay listens. What the service is measured against. Runs until it is ended.
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "sim/board/loopback.h"
#include "usb/loopback_device.h"

namespace {

// Listens with the relay's options, and waits for the client; -1 when it can't.
int accept_client() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    const int buffer_size = 3'000'000;
    setsockopt(listener, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(listener, SOL_SOCKET, SO_SNDBUF, &buffer_size, sizeof buffer_size);
    const sockaddr_in address = sim::loopback(6000);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 1) != 0) {
        return -1;
    }
    return accept(listener, nullptr, nullptr);
}

constexpr int no_client = -1;

void read_and_copy(int endpoint, int client) {
    std::array<std::uint8_t, 512> packet;
    ssize_t size = 0;
    while ((size = read(endpoint, packet.data(), packet.size())) > 0) {
        if (client != no_client &&
            send(client, packet.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL) != size) {
            std::exit(EXIT_FAILURE);
        }
    }
}

void start_reading(usb_gadget_handle* handle, const usb_gadget_event* event, void* client) {
    if (event->kind == usb_gadget_event_kind::endpoint_enabled && event->number == out_endpoint_number) {
        std::thread{read_and_copy, usb_gadget_find_endpoint(handle, event->number)->fd.load(),
                    *static_cast<int*>(client)}
            .detach();
    }
}

}  // namespace

int main(int argc, char** argv) {
    int client = no_client;
    if (argc == 2 && std::strcmp(argv[1], "copy") == 0) {
        client = accept_client();
        if (client == no_client) {
            std::perror("bare_reader: no client");
            return EXIT_FAILURE;
        }
    }
    if (std::system("modprobe gadgetfs && mkdir -p /dev/gadget && mount -t gadgetfs none /dev/gadget") != 0) {
        return EXIT_FAILURE;
    }
    usb_gadget_handle* const handle = usb_gadget_open(&loopback_device(0x18D1, 0x2D00));
    if (handle == nullptr) {
        std::perror("bare_reader: no USB device");
        return EXIT_FAILURE;
    }
    usb_gadget_set_event_cb(handle, start_reading, &client);
    while (usb_gadget_handle_events(handle) >= 0) {
    }
    return EXIT_FAILURE;
}
