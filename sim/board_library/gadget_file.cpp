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

#include "sim/board_library/board.h"
#include "sim/board_library/libc_calls.h"
#include "sim/board_protocol.h"

namespace board_library {
namespace {

using sim::board_protocol::Event;
using sim::board_protocol::event_size;
using sim::board_protocol::Kind;
using sim::board_protocol::Result;
static_assert(sizeof(usb_gadgetfs_event) == event_size);

enum class Role : std::uint8_t { none, controller, device, endpoint, out, in };

struct GadgetFile {
    std::atomic<Role> role{Role::none};
    std::atomic<bool> gone{false};
    std::atomic<std::uint32_t> max_packet{0};
};

constexpr int file_capacity = 1024;
GadgetFile files[file_capacity];

// Control endpoint of the one device. Its file is read and written by one thread, as gadgetfs expects.
struct ControlEndpoint {
    Event queue[16];
    std::atomic<std::size_t> pending{0};
    bool in_setup = false;  // the last event handed out was a setup that is not answered yet
    Event setup{};
};
ControlEndpoint control;

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

struct Message {
    Kind kind;
    std::size_t size;  // of what follows the kind; more than the buffer when it did not fit
};

// One message in. False when there is none (errno EAGAIN, with MSG_DONTWAIT) or the cable is gone
// (ESHUTDOWN).
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

bool await_result(int fd, Result& result) {
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

// drivers/usb/gadget/legacy/inode.c, next_event: a connect or a disconnect makes all pending events void, a
// setup or a suspend the pending one of its kind.
void queue_event(const Event& event, bool as_kernel) {
    std::size_t pending = control.pending;
    const auto type_of = [](const Event& one) {
        usb_gadgetfs_event record;
        std::memcpy(&record, one.record, sizeof record);
        return record.type;
    };
    const usb_gadgetfs_event_type type = type_of(event);
    if (as_kernel && (type == GADGETFS_CONNECT || type == GADGETFS_DISCONNECT)) {
        pending = 0;
    } else if (as_kernel) {
        Event* end = std::remove_if(control.queue, control.queue + pending,
                                    [&](const Event& one) { return type_of(one) == type; });
        pending = static_cast<std::size_t>(end - control.queue);
    }
    if (pending < std::size(control.queue)) {
        control.queue[pending++] = event;
    }
    control.pending = pending;
}

// Moves what the cable has sent into the queue; waits when there is nothing at all, unless flags say not to.
// False when the cable is gone or the wait was not allowed.
bool collect_events(int fd, int flags) {
    for (;;) {
        Event events[sim::board_protocol::event_batch];
        Message received{};
        const bool wait = control.pending == 0;
        if (!receive_message(fd, events, sizeof events, wait ? flags : MSG_DONTWAIT, received)) {
            return !wait;
        }
        for (std::size_t index = 0; index < received.size / sizeof(Event); ++index) {
            queue_event(events[index], received.kind == Kind::event);
        }
    }
}

ssize_t read_events(int fd, void* buffer, std::size_t length) {
    if (length < event_size) {
        return fail(EINVAL);
    }
    if (!collect_events(fd, 0)) {
        return -1;
    }
    const std::size_t most = std::min(length / event_size, control.pending.load());
    std::size_t count = 0;
    while (count < most && !control.in_setup) {
        const Event& event = control.queue[count];
        std::memcpy(static_cast<std::uint8_t*>(buffer) + count * event_size, event.record, event_size);
        usb_gadgetfs_event record;
        std::memcpy(&record, event.record, sizeof record);
        if (record.type == GADGETFS_SETUP) {
            control.in_setup = true;
            control.setup = event;
        }
        ++count;
    }
    std::copy(control.queue + count, control.queue + control.pending, control.queue);
    control.pending -= count;
    return static_cast<ssize_t>(count * event_size);
}

usb_ctrlrequest current_request() {
    usb_gadgetfs_event record;
    std::memcpy(&record, control.setup.record, sizeof record);
    return record.u.setup;
}

ssize_t answer_setup(int fd, Kind kind, const void* data, std::size_t size, ssize_t result, int error) {
    control.in_setup = false;
    if (send_message(fd, kind, &control.setup.request, 1, data, size) != 0) {
        return -1;
    }
    return error == 0 ? result : fail(error);
}

// The host gave up on the request: something newer has happened.
bool is_setup_aborted(int fd) {
    return collect_events(fd, MSG_DONTWAIT) && control.pending > 0;
}

ssize_t abort_setup() {
    control.in_setup = false;
    return fail(EIDRM);
}

ssize_t read_control(int fd, void* buffer, std::size_t length) {
    if (!control.in_setup) {
        return read_events(fd, buffer, length);
    }
    if (is_setup_aborted(fd)) {
        return abort_setup();
    }
    if ((current_request().bRequestType & USB_DIR_IN) != 0) {
        return answer_setup(fd, Kind::stall, nullptr, 0, 0, EL2HLT);
    }
    return length == 0 ? answer_setup(fd, Kind::ack, nullptr, 0, 0, 0) : fail(EINVAL);
}

ssize_t write_control(int fd, const void* data, std::size_t length) {
    if (!control.in_setup) {
        return fail(ESRCH);
    }
    if (is_setup_aborted(fd)) {
        return abort_setup();
    }
    const usb_ctrlrequest request = current_request();
    if ((request.bRequestType & USB_DIR_IN) != 0) {
        const std::size_t size = std::min<std::size_t>(length, request.wLength);
        return answer_setup(fd, Kind::answer, data, size, static_cast<ssize_t>(size), 0);
    }
    return control.setup.can_stall != 0 ? answer_setup(fd, Kind::stall, nullptr, 0, 0, EL2HLT) : fail(ESRCH);
}

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

ssize_t write_transfer(int fd, GadgetFile& file, const void* data, std::size_t length) {
    Message received{};
    if (send_message(fd, Kind::transfer, nullptr, 0, data, length) != 0) {
        return disconnected(file);
    }
    if (!receive_message(fd, nullptr, 0, 0, received)) {
        return errno == ESHUTDOWN ? disconnected(file) : -1;
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
    if (!endpoint) {
        control.pending = 0;
        control.in_setup = false;
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
        if (control.pending > 0 && !control.in_setup && (entry.events & POLLIN) != 0) {
            entry.revents = POLLIN;
            ++ready;
        }
    }
    return ready;
}

}  // namespace board_library
