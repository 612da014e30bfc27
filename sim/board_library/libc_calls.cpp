#include "sim/board_library/libc_calls.h"

#include "sim/board_library/next.h"

namespace board_library {
namespace {

constinit std::atomic<void*> found_recvmsg{nullptr};
constinit std::atomic<void*> found_sendmsg{nullptr};
constinit std::atomic<void*> found_socket{nullptr};
constinit std::atomic<void*> found_connect{nullptr};
constinit std::atomic<void*> found_close{nullptr};

}  // namespace

ssize_t libc_recvmsg(int fd, msghdr* message, int flags) {
    return next_function<decltype(&libc_recvmsg)>(found_recvmsg, "recvmsg")(fd, message, flags);
}

ssize_t libc_sendmsg(int fd, const msghdr* message, int flags) {
    return next_function<decltype(&libc_sendmsg)>(found_sendmsg, "sendmsg")(fd, message, flags);
}

int libc_socket(int domain, int type, int protocol) {
    return next_function<decltype(&libc_socket)>(found_socket, "socket")(domain, type, protocol);
}

int libc_connect(int fd, const sockaddr* address, socklen_t length) {
    return next_function<decltype(&libc_connect)>(found_connect, "connect")(fd, address, length);
}

int libc_close(int fd) {
    return next_function<decltype(&libc_close)>(found_close, "close")(fd);
}

}  // namespace board_library
