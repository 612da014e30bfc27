// Messages between the library and the simulated cable, see sim/board_protocol.h.
#pragma once

#include <sys/types.h>

#include <cstddef>

#include "sim/board_library/board_protocol.h"

namespace board_library {

using sim::board_protocol::Kind;

// -1, with errno set.
int fail(int error);

// One message out: the kind, then head and data; the kernel's buffers decide whether it blocks. 0, or -1 with
// ESHUTDOWN when nobody listens.
ssize_t send_message(int fd, Kind kind, const void* head, std::size_t head_size, const void* data,
                     std::size_t size);

struct Message {
    Kind kind;
    std::size_t size;  // of what follows the kind; more than the buffer when it did not fit
};

// One message in. False when there is none (errno EAGAIN, with MSG_DONTWAIT) or the cable is gone
// (ESHUTDOWN).
bool receive_message(int fd, void* buffer, std::size_t size, int flags, Message& received);

// Waits for the answer to an open or a configuration. False, with errno set, when it is a refusal.
bool await_result(int fd, sim::board_protocol::Result& result);

}  // namespace board_library
