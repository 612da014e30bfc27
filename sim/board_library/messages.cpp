#include "sim/board_library/messages.h"

#include <sys/socket.h>

#include <cerrno>

#include "sim/board_library/libc_calls.h"

namespace board_library {

int fail(int error) {
    errno = error;
    return -1;
}

// One message out; the kernel's buffers decide whether it blocks. -1 with ESHUTDOWN when nobody listens.
ssize_t send_message(int fd, Kind kind, const void* head, std::size_t head_size, const void* data,
                     std::size_t size) {
    iovec parts[] = {{&kind, 1}, {const_cast<void*>(head), head_size}, {const_cast<void*>(data), size}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 3;
    return libc_sendmsg(fd, &message, MSG_NOSIGNAL) < 0 ? fail(ESHUTDOWN) : 0;
}

bool receive_message(int fd, void* buffer, std::size_t size, int flags, Message& received) {
    iovec parts[] = {{&received.kind, 1}, {buffer, size}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    const ssize_t count = libc_recvmsg(fd, &message, flags | MSG_TRUNC);
    if (count <= 0) {
        if (count == 0 || errno == ECONNRESET) {
            errno = ESHUTDOWN;
        }
        return false;
    }
    received.size = static_cast<std::size_t>(count) - 1;
    return true;
}

bool await_result(int fd, sim::board_protocol::Result& result) {
    Message received{};
    do {
        if (!receive_message(fd, &result, sizeof result, 0, received)) {
            return false;
        }
    } while (received.kind != Kind::result);
    if (result.error != 0) {
        errno = result.error;
    }
    return result.error == 0;
}

}  // namespace board_library
