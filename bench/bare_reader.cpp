// The least that a device can do with the stream: the same device on the same endpoint files, whose OUT
// endpoint is read 512 bytes at a time and the bytes thrown away. What the service is measured against. Runs
// until it is ended.
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "usb/loopback_device.h"

namespace {

void read_and_discard(int endpoint) {
    std::array<std::uint8_t, 512> packet;
    while (read(endpoint, packet.data(), packet.size()) > 0) {
    }
}

void start_reading(usb_gadget_handle* handle, const usb_gadget_event* event, void* /*argument*/) {
    if (event->kind == usb_gadget_event_kind::endpoint_enabled && event->number == out_endpoint_number) {
        std::thread{read_and_discard, usb_gadget_find_endpoint(handle, event->number)->fd.load()}.detach();
    }
}

}  // namespace

int main() {
    if (std::system("modprobe gadgetfs && mkdir -p /dev/gadget && mount -t gadgetfs none /dev/gadget") != 0) {
        return EXIT_FAILURE;
    }
    usb_gadget_handle* const handle = usb_gadget_open(&loopback_device(0x18D1, 0x2D00));
    if (handle == nullptr) {
        std::perror("bare_reader: no USB device");
        return EXIT_FAILURE;
    }
    usb_gadget_set_event_cb(handle, start_reading, nullptr);
    while (usb_gadget_handle_events(handle) >= 0) {
    }
    return EXIT_FAILURE;
}
