#include "usb/gadget.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "io/usb_link.h"
#include "link/stream.h"
#include "platform/clock.h"
#include "platform/diagnostics.h"
#include "platform/process_end.h"
#include "platform/thread.h"
#include "usb/loopback_device.h"
#include "usb/read_gate.h"
#include "usb/tcp_relay.h"

namespace {
constexpr std::uint16_t accessory_vendor_id = 0x18D1;
constexpr std::uint16_t accessory_product_id = 0x2D00;
constexpr int poll_timeout_ms = 10;
constexpr std::uint32_t receiver_period_ms = 100;
constexpr std::uint32_t exit_pause_ms = 200;

// Each may have been done before, and then fails harmlessly.
constexpr const char* setup_commands[] = {
    "modprobe gadgetfs > /dev/null 2>&1",
    "mkdir /dev/gadget > /dev/null 2>&1",
    "mount -t gadgetfs none /dev/gadget > /dev/null 2>&1",
};

// The reader can be cancelled only where it waits: everything else it does runs to its end.
class Cancellable {
  public:
    Cancellable() { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr); }
    ~Cancellable() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); }
    Cancellable(const Cancellable&) = delete;
    Cancellable& operator=(const Cancellable&) = delete;
};

void close_endpoints(UsbLink& link) {
    usb_gadget_endpoint_close(link.ep_in.exchange(nullptr));
    usb_gadget_endpoint_close(link.ep_out.exchange(nullptr));
}

ReadGate read_gate;

// One packet, after the bytes already buffered; a cancellation in the middle of the read releases the lock. A
// read that was interrupted is taken up again.
std::int16_t read_packet(UsbLink& link, usb_gadget_endpoint* endpoint) {
    const Cancellable cancellable;
    for (;;) {
        {
            const FairLockGuard guard{link.lock};
            if (const ReadGate::Pass pass{read_gate}) {
                const ssize_t size =
                    usb_gadget_endpoint_read(endpoint, link.rx_buffer + link.rx_fill, usb_read_size);
                if (size != -1 || errno != EINTR) {
                    return static_cast<std::int16_t>(size);
                }
            }
        }
        read_gate.wait_until_open();
    }
}

// Keeps the reader out of its endpoint while the gadget layer needs the endpoint's file itself.
void hold_transfers(usb_gadget_handle* /*handle*/, bool hold) {
    const UsbLink& link = usb_link();
    if (!hold) {
        read_gate.open();
    } else if (link.read_thread) {
        read_gate.close(*link.read_thread);
    }
}

// The receiver thread has taken the endpoint or the connection away and is about to cancel the reader, which
// may come to its read in between.
bool is_being_retired(const UsbLink& link, const usb_gadget_endpoint& endpoint) {
    return endpoint.fd < 0 || link.handle->speed == 0;
}

void wait_to_be_cancelled() {
    const Cancellable cancellable;
    for (;;) {
        pause();
    }
}

// stop goes first: the receiver thread, which takes up control events again once nothing streams, must find
// it.
void end_streaming() {
    UsbLink& link = usb_link();
    link.stop = 1;
    link.streaming = 0;
}

// A reader that was started earlier is gone afterwards, and its endpoints are closed: by this thread, which
// is the one that changes the list of endpoints, so a reader that is cancelled has nothing left to do but let
// go of the lock.
void retire_reader(UsbLink& link) {
    if (link.read_thread) {
        pthread_cancel(*link.read_thread);
        pthread_join(*link.read_thread, nullptr);
        link.read_thread.reset();
        close_endpoints(link);
    }
}

bool start_reader(UsbLink& link) {
    pthread_t thread{};
    if (start_thread(usbRead_thread, thread, "usb-reader") != 0) {
        std::fputs("usbRead_thread create failed", stderr);
        return false;
    }
    link.read_thread = thread;
    return true;
}

void disable_endpoint(std::atomic<usb_gadget_endpoint*>& endpoint, const char* message) {
    endpoint = nullptr;
    std::fputs(message, stderr);
}

}  // namespace

int gadget_init() {
    for (const char* command : setup_commands) {
        [[maybe_unused]] const int result = std::system(command);
    }
    pthread_t thread{};
    if (gadget_open(accessory_vendor_id, accessory_product_id) < 0 ||
        start_thread(usb_receiver_thread, thread, "usb-receiver") != 0) {
        std::fputs("Gadget init failed\n", stderr);
        return 1;
    }
    return 0;
}

int gadget_open(std::uint16_t vendor_id, std::uint16_t product_id) {
    UsbLink& link = usb_link();
    link.rx_fill = 0;
    link.rx_searched = 0;
    link.rx_buffer = new (std::nothrow) std::uint8_t[rx_buffer_size];
    if (link.rx_buffer == nullptr) {
        std::fputs("Couldn't allocate memory\n", stderr);
        return -1;
    }
    link.streaming = 0;
    link.last_activity_ms = now_ms();
    link.handle = usb_gadget_open(&loopback_device(vendor_id, product_id));
    if (link.handle == nullptr) {
        std::fputs("Couldn't open USB device\n", stderr);
        return -1;
    }
    std::fputs("USB device opened\n", stderr);
    usb_gadget_set_event_cb(link.handle, loopback_event_cb, nullptr);
    ReadGate::prepare_signal();
    usb_gadget_set_hold_cb(link.handle, hold_transfers);
    usb_gadget_set_debug_level(link.handle, 0);
    link.control_poll = {.fd = usb_gadget_control_fd(link.handle), .events = POLLIN | POLLPRI, .revents = 0};
    if (fair_lock_init(link.lock) != 0) {
        std::fputs("Mutex init failed", stderr);
        return -1;
    }
    std::fputs("Init done\n", stderr);
    return 0;
}

void gadget_exit() {
    UsbLink& link = usb_link();
    end_streaming();
    link.last_activity_ms = 0;
    retire_reader(link);
    link.ep_in = nullptr;  // also when there was no reader to clear it: no further writer passes
    link.ep_out = nullptr;
    delete[] link.rx_buffer;
    link.rx_buffer = nullptr;
    sleep_ms(exit_pause_ms);
    // A write that has not come back by now still uses its endpoint and the lock. They stay: the process is
    // ending.
    if (fair_lock_try_acquire(link.lock)) {
        usb_gadget_close(link.handle);
        link.handle = nullptr;
        fair_lock_release(link.lock);
        fair_lock_destroy(link.lock);
    }
    std::fputs("Exit gadget\n", stderr);
}

int gadget_poll() {
    UsbLink& link = usb_link();
    link.control_poll.revents = 0;
    if (poll(&link.control_poll, 1, poll_timeout_ms) < 0 || link.stop != 0) {
        std::fputs("poll error or break!\n", stderr);
        return 0;
    }
    if ((link.control_poll.revents & POLLIN) != 0) {
        usb_gadget_handle_events(link.handle);
    }
    return 1;
}

void* usb_receiver_thread(void* /*argument*/) {
    UsbLink& link = usb_link();
    for (;;) {
        const bool streaming = usb_streaming();
        link.is_connected = streaming;
        if (!streaming && gadget_poll() == 0) {
            break;
        }
        sleep_ms(receiver_period_ms);
    }
    // From here on neither the watchdog nor a failing reader can end the process in the middle of the
    // clean-up.
    end_process(exit_failed, "USB receiver exit\n", gadget_exit);
}

void* usbRead_thread(void* /*argument*/) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    ReadGate::accept_signal();
    UsbLink& link = usb_link();
    while (link.stop == 0) {
        {
            const Cancellable cancellable;
            pthread_testcancel();
        }
        usb_gadget_endpoint* const endpoint = link.ep_out;
        if (link.stop != 0 || link.rx_buffer == nullptr || endpoint == nullptr) {
            break;
        }
        const std::int16_t size = read_packet(link, endpoint);
        if (size < 1 && is_being_retired(link, *endpoint)) {
            wait_to_be_cancelled();
        }
        if (size < 1) {
            end_process(exit_link_failed, "read failed\n", end_streaming);
        }
        const auto length = static_cast<std::uint16_t>(size);
        if (tcp_client_connected()) {
            tcp_relay_send({link.rx_buffer + link.rx_fill, length});
        }
        link.rx_fill += length;
        link.streaming = 1;
        link.last_activity_ms = now_ms();
        if (link.rx_fill > rx_fill_limit) {
            link.rx_fill = 0;
            std::fputs("Buffer overflowed\n", stderr);
        }
        if (parse_usb_stream(link.rx_buffer, link.rx_fill, link.rx_searched) == -1) {
            end_streaming();
            break;
        }
    }
    close_endpoints(link);
    return nullptr;
}

void loopback_event_cb(usb_gadget_handle* handle, const usb_gadget_event* event, void* /*argument*/) {
    using enum usb_gadget_event_kind;
    UsbLink& link = usb_link();
    switch (event->kind) {
        case endpoint_enabled:
            if (event->number == in_endpoint_number) {
                retire_reader(link);
                link.ep_in = usb_gadget_find_endpoint(handle, event->number);
            } else if (event->number == out_endpoint_number) {
                retire_reader(link);
                link.ep_out = usb_gadget_find_endpoint(handle, event->number);
                if (!start_reader(link)) {
                    std::fputs("ardenvue: loopback_event_cb: Assertion `reader_started' failed.\n", stderr);
                    drain_diagnostics();
                    std::abort();
                }
            }
            if (link.ep_in != nullptr && link.ep_out != nullptr) {
                std::fputs("USB connected\n", stderr);
                link.last_activity_ms = now_ms();
            }
            break;
        case endpoint_disabled:
            if (event->number == in_endpoint_number) {
                disable_endpoint(link.ep_in, "USB endpoint IN disabled\n");
            } else if (event->number == out_endpoint_number) {
                disable_endpoint(link.ep_out, "USB endpoint OUT disabled\n");
                retire_reader(link);
            }
            break;
        case disconnected:
            std::fputs("USB disconnected\n", stderr);
            retire_reader(link);
            close_endpoints(link);  // also of a configuration that was only half opened
            break;
        case connected:
        case suspended:
            break;
    }
}
