#include "sim/cable/board_file.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <thread>

namespace sim {

void BoardFile::send(board_protocol::Kind kind, const void* data, std::size_t size) const {
    iovec pieces[] = {{&kind, 1}, {const_cast<void*>(data), size}};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = 2;
    [[maybe_unused]] const ssize_t sent = sendmsg(connection.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

bool BoardFile::wait_until_read(std::chrono::steady_clock::time_point deadline) const {
    for (unsigned round = 0;; ++round) {
        const bool ended = gone;
        int pending = 0;
        ioctl(connection.get(), SIOCOUTQ, &pending);
        pollfd peer{connection.get(), 0, 0};
        const bool closed = poll(&peer, 1, 0) > 0;
        if (ended || (pending == 0 && !closed)) {
            return pending == 0 && !unread;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        if (round < 50) {
            std::this_thread::yield();
        } else {
            std::this_thread::sleep_for(std::chrono::microseconds{std::min(round, 1000U)});
        }
    }
}

}  // namespace sim
