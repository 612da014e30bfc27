#include "io/usb_link.h"

#include "platform/interrupted.h"

namespace {
UsbLink the_link;
}

UsbLink& usb_link() {
    return the_link;
}

int usb_write_locked(std::span<const std::uint8_t> packet) {
    UsbLink& link = the_link;
    if (link.ep_in == nullptr || link.streaming == 0) {
        return 0;
    }
    const FairLockGuard guard{link.lock};
    // Looked up again: while this thread waited its turn, the endpoint may have gone.
    usb_gadget_endpoint* const endpoint = link.ep_in;
    return endpoint == nullptr ? 0 : static_cast<int>(past_interruptions([&] {
        return usb_gadget_endpoint_write(endpoint, packet.data(), packet.size());
    }));
}

bool usb_streaming() {
    return the_link.streaming != 0;
}

std::uint32_t usb_last_activity_ms() {
    return the_link.last_activity_ms.load(std::memory_order_relaxed);
}

bool usb_is_connected() {
    return the_link.is_connected.load(std::memory_order_relaxed) != 0;
}
