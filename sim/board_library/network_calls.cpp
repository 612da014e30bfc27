// Sockets: the two fixed ports, and failures on demand.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "sim/board_library/board.h"
#include "sim/board_library/next.h"

using namespace board_library;

namespace {

constexpr std::uint16_t relay_port = 6000;
constexpr std::uint16_t notice_port = 5255;

int socket_type(int fd) {
    int type = 0;
    socklen_t length = sizeof type;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) == 0 ? type : 0;
}

// The IPv4 address, copied; family 0 when it is of another kind.
sockaddr_in ipv4(const sockaddr* address, socklen_t length) {
    sockaddr_in copy{};
    if (address != nullptr && length >= sizeof copy && address->sa_family == AF_INET) {
        std::memcpy(&copy, address, sizeof copy);
    }
    return copy;
}

// Puts the port in place of the real one; false when the address does not name that one or the port is
// unchanged.
bool replace_port(sockaddr_in& address, std::uint16_t real, int port) {
    if (address.sin_family != AF_INET || ntohs(address.sin_port) != real || port < 0) {
        return false;
    }
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return true;
}

int published_relay_port() {
    char path[PATH_MAX];
    std::snprintf(path, sizeof path, "%.2000s/relay_port", board().directory);
    FILE* file = std::fopen(path, "re");
    int port = -1;
    if (file != nullptr) {
        if (std::fscanf(file, "%d", &port) != 1) {
            port = -1;
        }
        std::fclose(file);
    }
    return port;
}

// Tells the simulator which port the relay listens on. The file appears whole.
void publish_relay_port(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        address.sin_family != AF_INET) {
        return;
    }
    char text[16];
    std::snprintf(text, sizeof text, "%d", ntohs(address.sin_port));
    note("relay_port.new", text);
    char from[PATH_MAX];
    char to[PATH_MAX];
    std::snprintf(from, sizeof from, "%.2000s/relay_port.new", board().directory);
    std::snprintf(to, sizeof to, "%.2000s/relay_port", board().directory);
    std::rename(from, to);
}

}  // namespace

BOARD_CALL(int, socket, (int domain, int type, int protocol)) {
    if (domain == AF_INET) {
        const bool stream = (type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK)) == SOCK_STREAM;
        if (fault(stream ? "socket_tcp" : "socket_udp", EMFILE)) {
            return -1;
        }
    }
    return NEXT(socket)(domain, type, protocol);
}

BOARD_CALL(int, bind, (int fd, const sockaddr* address, socklen_t length)) {
    sockaddr_in to = ipv4(address, length);
    if (to.sin_family == AF_INET &&
        fault(socket_type(fd) == SOCK_STREAM ? "bind_tcp" : "bind_udp", EADDRINUSE)) {
        return -1;
    }
    if (socket_type(fd) == SOCK_STREAM && replace_port(to, relay_port, board().relay_port)) {
        return NEXT(bind)(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
    return NEXT(bind)(fd, address, length);
}

BOARD_CALL(int, listen, (int fd, int backlog)) {
    if (fault("listen", EADDRINUSE)) {
        return -1;
    }
    const int result = NEXT(listen)(fd, backlog);
    if (result == 0 && board().relay_port >= 0) {
        publish_relay_port(fd);
    }
    return result;
}

BOARD_CALL(int, accept, (int fd, sockaddr* address, socklen_t* length)) {
    return fault("accept", EMFILE) ? -1 : NEXT(accept)(fd, address, length);
}

BOARD_CALL(int, accept4, (int fd, sockaddr* address, socklen_t* length, int flags)) {
    return fault("accept", EMFILE) ? -1 : NEXT(accept4)(fd, address, length, flags);
}

#define BOARD_SETSOCKOPT(name)                                                                    \
    BOARD_CALL(int, name, (int fd, int level, int option, const void* value, socklen_t length)) { \
        if (level == SOL_SOCKET && option == SO_SNDBUF && fault("sndbuf", ENOBUFS)) {             \
            return -1;                                                                            \
        }                                                                                         \
        return NEXT(name)(fd, level, option, value, length);                                      \
    }
BOARD_SETSOCKOPT(setsockopt)
BOARD_SETSOCKOPT(__setsockopt64)

// A client that runs on the same board finds its relay at the usual port.
BOARD_CALL(int, connect, (int fd, const sockaddr* address, socklen_t length)) {
    sockaddr_in to = ipv4(address, length);
    if (board().relay_port >= 0 && socket_type(fd) == SOCK_STREAM &&
        replace_port(to, relay_port, published_relay_port())) {
        return NEXT(connect)(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
    return NEXT(connect)(fd, address, length);
}

BOARD_CALL(ssize_t, sendto,
           (int fd, const void* data, std::size_t size, int flags, const sockaddr* address,
            socklen_t length)) {
    sockaddr_in to = ipv4(address, length);
    if (replace_port(to, notice_port, board().notice_port)) {
        return NEXT(sendto)(fd, data, size, flags, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
    return NEXT(sendto)(fd, data, size, flags, address, length);
}
