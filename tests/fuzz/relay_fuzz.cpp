// The relay, both ways, over real connections: clients that come, go and break off at any moment. What the
// remote controller sends while a client is served reaches it whole, in order, and nothing else does; what
// the client sends reaches the remote controller, in pieces of one packet at most.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>

#include "fuzz.h"
#include "io/usb_link.h"
#include "platform/file_descriptor.h"
#include "usb/tcp_relay.h"

namespace {

// Of the loopback network.
constexpr std::uint32_t first_address = 0x7F010001;
constexpr std::uint32_t last_address = 0x7FFFFF00;

std::mutex to_remote_lock;
std::string to_remote;

sockaddr_in address(std::uint32_t host, std::uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = htonl(host);
    return result;
}

const sockaddr* general(const sockaddr_in& specific) {
    return reinterpret_cast<const sockaddr*>(&specific);
}

std::uint16_t start_server() {
    tcp_set_receive_handler(relay_to_usb);
    for (std::uint16_t port = 20'000 + static_cast<std::uint16_t>(getpid() % 10'000);; ++port) {
        if (tcp_server_start(port) == 0) {
            return port;
        }
    }
}

// Each comes from an address of its own: the pairs of addresses that the kernel keeps for a while never run
// out.
FileDescriptor connect_client() {
    static const std::uint16_t port = start_server();
    static std::uint32_t own = first_address + static_cast<std::uint32_t>(getpid()) % 0xF0'0000;
    FileDescriptor client{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    const sockaddr_in from = address(own, 0);
    own = own == last_address ? first_address : own + 1;
    const sockaddr_in server = address(INADDR_LOOPBACK, port);
    fuzz::require(bind(client.get(), general(from), sizeof from) == 0 &&
                      connect(client.get(), general(server), sizeof server) == 0,
                  std::string{"connect: "} + std::strerror(errno));
    return client;
}

void stream(std::span<const std::uint8_t> piece, const FileDescriptor& client) {
    tcp_relay_send(piece);
    std::string received(piece.size(), '\0');
    fuzz::require(
        recv(client.get(), received.data(), received.size(), MSG_WAITALL) ==
                static_cast<ssize_t>(piece.size()) &&
            std::equal(piece.begin(), piece.end(), received.begin(),
                       [](std::uint8_t byte, char c) { return byte == static_cast<std::uint8_t>(c); }),
        "what reaches the client");
    fuzz::require(recv(client.get(), received.data(), 1, MSG_DONTWAIT) < 0, "more than was sent");
}

void inject(const std::string& bytes, const FileDescriptor& client) {
    fuzz::require(
        send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()),
        "send");
    fuzz::wait_until("what reaches the remote controller", [&] {
        const std::lock_guard lock{to_remote_lock};
        return to_remote.size() >= bytes.size();
    });
    fuzz::require(std::exchange(to_remote, {}) == bytes, "other bytes reach the remote controller");
}

// With a reset (which may take along what is under way) or, at times, in order, perhaps under a piece of the
// stream. The kernel remembers each connection that ended in order for a minute, and has room for so many.
void leave(std::uint8_t how, FileDescriptor client, std::span<const std::uint8_t> piece) {
    const linger reset{.l_onoff = 1, .l_linger = 0};
    if (how % 8 != 0) {
        setsockopt(client.get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }
    if ((how & 8) != 0) {
        shutdown(client.get(), SHUT_WR);
    }
    client = FileDescriptor{};
    if ((how & 16) != 0) {
        tcp_relay_send(piece);
        tcp_relay_send(piece);
    }
}

}  // namespace

// In place of io/usb_link: the remote controller.
int usb_write_locked(std::span<const std::uint8_t> packet) {
    fuzz::require(!packet.empty() && packet.size() <= usb_read_size, "size of a packet");
    const std::lock_guard lock{to_remote_lock};
    to_remote.append(packet.begin(), packet.end());
    return static_cast<int>(packet.size());
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input{data, size};
    FileDescriptor client = connect_client();
    fuzz::wait_until("the client is served", tcp_client_connected);
    while (!input.empty()) {
        const std::uint8_t act = input.byte();
        std::string bytes(1 + act * 9U, static_cast<char>(act));
        std::ranges::copy(input.bytes(act / 4), bytes.begin());
        const std::span whole{reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
        const auto piece = whole.first(std::min(whole.size(), usb_read_size));
        if (act % 4 == 0) {
            stream(piece, client);
        } else if (act % 4 == 1) {
            inject(bytes, client);
        } else if (act % 4 == 2) {
            leave(act / 4, std::move(client), piece);
            fuzz::wait_until("the client has gone", [] { return !tcp_client_connected(); });
            tcp_relay_send(piece);  // kept for nobody
            client = connect_client();
            fuzz::wait_until("the next client is served", tcp_client_connected);
        } else {  // the next one waits, and is served when the first has gone
            FileDescriptor next = connect_client();
            stream(piece, client);
            fuzz::require(recv(next.get(), bytes.data(), 1, MSG_DONTWAIT) < 0, "two clients at a time");
            leave(act / 4 & 15, std::move(client), piece);
            client = std::move(next);
            inject(bytes, client);
        }
    }
    leave(1, std::move(client), {});
    fuzz::wait_until("the last client has gone", [] { return !tcp_client_connected(); });
    return 0;
}
