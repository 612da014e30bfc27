#include "sim/board_library/control_endpoint.h"

#include <linux/usb/gadgetfs.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "sim/board_library/messages.h"

namespace board_library {
namespace {

using sim::board_protocol::Event;
using sim::board_protocol::event_size;
static_assert(sizeof(usb_gadgetfs_event) == event_size);

struct ControlEndpoint {
    Event queue[16];
    std::atomic<std::size_t> pending{0};
    bool in_setup = false;      // the last event handed out was a setup that is not answered yet
    bool is_overtaken = false;  // by another setup, which is told once
    Event setup{};              // the newest: what answers it is judged by
};
ControlEndpoint control;

// drivers/usb/gadget/legacy/inode.c, next_event: a connect or a disconnect makes all pending events void, a
// setup or a suspend the pending one of its kind.
usb_gadgetfs_event_type type_of(const Event& event) {
    usb_gadgetfs_event record;
    std::memcpy(&record, event.record, sizeof record);
    return record.type;
}

void note_overtaking(const Event& event) {
    if (control.in_setup && type_of(event) == GADGETFS_SETUP) {
        control.is_overtaken = true;
        control.setup = event;
    }
}

void queue_event(const Event& event, bool as_kernel) {
    std::size_t pending = control.pending;
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
            note_overtaking(events[index]);
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
        if (type_of(event) == GADGETFS_SETUP) {
            control.in_setup = true;
            control.setup = event;
        }
        ++count;
    }
    std::copy(control.queue + count, control.queue + control.pending, control.queue);
    control.pending -= count;
    std::for_each(control.queue, control.queue + control.pending, note_overtaking);
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

// The host gave up on the request: something newer has happened. A newer request takes the older one's place,
// and has to be ended before its event can be read.
bool is_setup_aborted(int fd) {
    collect_events(fd, MSG_DONTWAIT);
    const bool has_left = std::any_of(control.queue, control.queue + control.pending, [](const Event& event) {
        return type_of(event) == GADGETFS_CONNECT || type_of(event) == GADGETFS_DISCONNECT;
    });
    control.in_setup = !has_left;
    return std::exchange(control.is_overtaken, false) || has_left;
}

}  // namespace

void reset_control_endpoint() {
    control.pending = 0;
    control.in_setup = false;
    control.is_overtaken = false;
}

bool has_unanswered_setup() {
    return control.in_setup;
}

bool has_collected_events() {
    return control.pending > 0 && !control.in_setup;
}

ssize_t read_control(int fd, void* buffer, std::size_t length) {
    if (!control.in_setup) {
        return read_events(fd, buffer, length);
    }
    if (is_setup_aborted(fd)) {
        return fail(EIDRM);
    }
    if ((current_request().bRequestType & USB_DIR_IN) != 0) {
        return answer_setup(fd, Kind::stall, nullptr, 0, 0, EL2HLT);
    }
    // The data of a request, of which nothing but the length is known here. An empty read is too late for the
    // status stage then, but ends the request.
    const std::size_t size = std::min<std::size_t>(length, current_request().wLength);
    std::memset(buffer, 0, size);
    const bool too_late = length == 0 && current_request().wLength != 0;
    return answer_setup(fd, Kind::ack, nullptr, 0, static_cast<ssize_t>(size), too_late ? EBUSY : 0);
}

ssize_t write_control(int fd, const void* data, std::size_t length) {
    if (!control.in_setup) {
        return fail(ESRCH);
    }
    if (is_setup_aborted(fd)) {
        return fail(EIDRM);
    }
    const usb_ctrlrequest request = current_request();
    if ((request.bRequestType & USB_DIR_IN) != 0) {
        const std::size_t size = std::min<std::size_t>(length, request.wLength);
        return answer_setup(fd, Kind::answer, data, size, static_cast<ssize_t>(size), 0);
    }
    return control.setup.can_stall != 0 ? answer_setup(fd, Kind::stall, nullptr, 0, 0, EL2HLT) : fail(ESRCH);
}

}  // namespace board_library
