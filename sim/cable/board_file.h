// One open gadget file, as the cable's end of its connection sees it.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <string>

#include "platform/file_descriptor.h"
#include "sim/board_library/board_protocol.h"
#include "sim/cable/board_kernel.h"

namespace sim {

struct BoardFile {
    FileDescriptor connection;
    std::string name;  // empty until the library has said it
    bool configured = false;
    Bytes written;  // its configuration
    EndpointConfiguration endpoint{};
    std::deque<Bytes> writes;         // to an IN endpoint, not yet taken by the host
    std::atomic<bool> gone{false};    // the cable was pulled since, or the file closed
    std::atomic<bool> unread{false};  // closed with something unread

    bool is_open_endpoint(bool in) const {
        return configured && !gone && endpoint.address != 0 && ((endpoint.address & 0x80) != 0) == in;
    }

    // Sends one message. Never waits: a service that went away is noticed when the connection is read.
    void send(board_protocol::Kind kind, const void* data, std::size_t size) const;

    // Waits until everything sent on the connection has been read; false when the time is up, or it never
    // will be.
    bool wait_until_read(std::chrono::steady_clock::time_point deadline) const;
};

}  // namespace sim
