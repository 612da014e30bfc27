#include "sim/board_library/gadget_file.h"

#include <fcntl.h>
#include <linux/usb/gadgetfs.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "platform/fair_lock.h"
#include "sim/board_library/board.h"
#include "sim/board_library/control_endpoint.h"
#include "sim/board_library/libc_calls.h"
#include "sim/board_library/messages.h"

namespace board_library {
namespace {

using sim::board_protocol::Result;

enum class Role : std::uint8_t { none, controller, device, endpoint, out, in };

struct GadgetFile {
    std::atomic<Role> role{Role::none};
    std::atomic<bool> gone{false};
    std::atomic<std::uint32_t> max_packet{0};
    // Of an endpoint: whoever wants it while a transfer is in progress waits for the end of that.
    FairLock in_use{PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0, 0};
};

constexpr int file_capacity = 1024;
GadgetFile files[file_capacity];

ssize_t configure(int fd, GadgetFile& file, Role role, const void* data, std::size_t length) {
    Result result{};
    if (send_message(fd, Kind::configure, nullptr, 0, data, length) != 0 || !await_result(fd, result)) {
        return -1;
    }
    file.max_packet = result.max_packet;
    file.role = role;
    return static_cast<ssize_t>(length);
}

// The direction stands in bEndpointAddress of the descriptor, behind the tag.
Role configured_role(const void* configuration, std::size_t length) {
    constexpr std::size_t address_offset = 4 + 2;
    const auto* bytes = static_cast<const std::uint8_t*>(configuration);
    return length > address_offset && (bytes[address_offset] & USB_DIR_IN) == 0 ? Role::out : Role::in;
}

ssize_t disconnected(GadgetFile& file) {
    file.gone = true;
    return fail(ESHUTDOWN);
}

// One request: packets until it is full or a short one arrives.
ssize_t read_packets(int fd, GadgetFile& file, std::uint8_t* buffer, std::size_t length) {
    const FairLockGuard guard{file.in_use};
    const std::size_t max_packet = file.max_packet;
    std::size_t filled = 0;
    Message received{};
    do {
        if (!receive_message(fd, buffer + filled, length - filled, 0, received)) {
            return errno == ESHUTDOWN ? disconnected(file) : -1;
        }
        if (received.size > length - filled) {
            return fail(EOVERFLOW);
        }
        filled += received.size;
    } while (filled < length && received.size == max_packet);
    return static_cast<ssize_t>(filled);
}

// A write that a signal interrupts moves nothing, unless the host was faster.
bool was_withdrawn(int fd) {
    Message answer{};
    if (send_message(fd, Kind::withdraw, nullptr, 0, nullptr, 0) == 0) {
        while (!receive_message(fd, nullptr, 0, 0, answer) && errno == EINTR) {
        }
    }
    return answer.kind != Kind::taken;
}

ssize_t write_transfer(int fd, GadgetFile& file, const void* data, std::size_t length) {
    const FairLockGuard guard{file.in_use};
    Message received{};
    if (send_message(fd, Kind::transfer, nullptr, 0, data, length) != 0) {
        return disconnected(file);
    }
    if (!receive_message(fd, nullptr, 0, 0, received)) {
        if (errno != EINTR) {
            return disconnected(file);
        }
        if (was_withdrawn(fd)) {
            return fail(EINTR);
        }
    }
    return static_cast<ssize_t>(length);
}

bool is_open(Role role) {
    return std::any_of(std::begin(files), std::end(files),
                       [role](const GadgetFile& file) { return file.role == role; });
}

// A transfer in the wrong direction halts the endpoint.
ssize_t halt(int fd) {
    return send_message(fd, Kind::halt, nullptr, 0, nullptr, 0) == 0 ? fail(EBADMSG) : -1;
}

}  // namespace

bool is_gadget_file(int fd) {
    return fd >= 0 && fd < file_capacity && files[fd].role.load(std::memory_order_relaxed) != Role::none;
}

int open_gadget_file(const char* name, int flags) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const int length =
        std::snprintf(address.sun_path, sizeof address.sun_path, "%.100s/cable", board().directory);
    if (length >= static_cast<int>(sizeof address.sun_path)) {
        return fail(ENAMETOOLONG);
    }
    const int type = SOCK_SEQPACKET | ((flags & O_CLOEXEC) != 0 ? SOCK_CLOEXEC : 0);
    const int fd = libc_socket(AF_UNIX, type, 0);
    if (fd < 0) {
        return -1;
    }
    Result result{};
    if (fd >= file_capacity || libc_connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        send_message(fd, Kind::open, nullptr, 0, name, std::strlen(name)) != 0 || !await_result(fd, result)) {
        const int error = errno;
        libc_close(fd);
        return fail(error);
    }
    const bool endpoint = std::strncmp(name, "ep", 2) == 0;
    if (endpoint) {
        // With a limit, even one that is never reached, the socket ends a wait with EINTR when the process is
        // stopped and continued, as the kernel does with a transfer.
        constexpr timeval long_enough{1'000'000, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &long_enough, sizeof long_enough);
    } else {
        reset_control_endpoint();
    }
    files[fd].gone = false;
    files[fd].role = endpoint ? Role::endpoint : Role::controller;
    return fd;
}

ssize_t read_gadget_file(int fd, void* buffer, std::size_t length) {
    GadgetFile& file = files[fd];
    if (file.gone) {
        return fail(ESHUTDOWN);
    }
    switch (file.role) {
        case Role::controller:
            return fail(EINVAL);
        case Role::device:
            return read_control(fd, buffer, length);
        case Role::out:
            return read_packets(fd, file, static_cast<std::uint8_t*>(buffer), length);
        case Role::in:
            return halt(fd);
        default:
            return fail(ENODEV);
    }
}

ssize_t write_gadget_file(int fd, const void* data, std::size_t length) {
    GadgetFile& file = files[fd];
    if (file.gone) {
        return fail(ESHUTDOWN);
    }
    switch (file.role) {
        case Role::controller:
            return configure(fd, file, Role::device, data, length);
        case Role::device:
            return write_control(fd, data, length);
        case Role::endpoint:
            return configure(fd, file, configured_role(data, length), data, length);
        case Role::in:
            return write_transfer(fd, file, data, length);
        case Role::out:
            return halt(fd);
        default:
            return fail(ENODEV);
    }
}

int control_gadget_file(int fd, unsigned long request) {
    GadgetFile& file = files[fd];
    const Role role = file.role;
    if (role != Role::in && role != Role::out) {
        return fail(ENODEV);
    }
    const FairLockGuard guard{file.in_use};
    if (file.gone) {
        return fail(ESHUTDOWN);
    }
    if (request != GADGETFS_CLEAR_HALT) {
        return fail(ENOTTY);
    }
    return static_cast<int>(send_message(fd, Kind::clear_halt, nullptr, 0, nullptr, 0));
}

void forget_gadget_file(int fd) {
    files[fd].role = Role::none;
}

bool gadget_device_is_open() {
    return is_open(Role::device);
}
bool out_endpoint_is_open() {
    return is_open(Role::out);
}

void hide_unanswered_device(pollfd* entries, nfds_t count, bool hide) {
    for (nfds_t index = 0; index < count; ++index) {
        int& fd = entries[index].fd;
        const bool is_hidden = fd < 0;
        const int shown = is_hidden ? ~fd : fd;
        if (is_hidden != hide && is_gadget_file(shown) && files[shown].role == Role::device &&
            (is_hidden || has_unanswered_setup())) {
            fd = ~fd;
        }
    }
}

int poll_pending_events(pollfd* entries, nfds_t count) {
    int ready = 0;
    for (nfds_t index = 0; index < count; ++index) {
        pollfd& entry = entries[index];
        if (!is_gadget_file(entry.fd) || files[entry.fd].role != Role::device) {
            continue;
        }
        if (fault("poll", ENOMEM)) {
            return -1;
        }
        if (has_collected_events() && (entry.events & POLLIN) != 0) {
            entry.revents = POLLIN;
            ++ready;
        }
    }
    return ready;
}

}  // namespace board_library
