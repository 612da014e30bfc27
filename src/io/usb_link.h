// The part of the USB link that others use: its state and the one way to send bytes to the remote controller.
// What runs the link (enumeration, the reader) is usb/gadget, which owns the record's contents.
#pragma once

#include <poll.h>
#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/fair_lock.h"
#include "usb/libusb-gadget/usb-gadget.h"

constexpr std::size_t usb_read_size = 512;  // one high-speed bulk packet (USB 2.0, 5.8.3)
constexpr std::size_t rx_buffer_size = 50'000;
constexpr std::uint32_t rx_fill_limit = 49'486;  // one more read always fits: 49,486 + 512 = 49,998

struct UsbLink {
    std::atomic<usb_gadget_endpoint*>
        ep_in;  // while enabled; stored with release, the record is complete then
    std::atomic<usb_gadget_endpoint*> ep_out;
    std::optional<pthread_t> read_thread;  // the most recently started reader, until it has been joined
    std::atomic<std::uint32_t> last_activity_ms;  // see now_ms
    std::atomic<std::uint32_t> stop;
    FairLock lock;  // held for each endpoint read and each endpoint write
    std::atomic<std::uint32_t> streaming;
    usb_gadget_handle* handle;
    pollfd control_poll;
    std::uint8_t* rx_buffer;  // heap, rx_buffer_size bytes, or null
    std::uint32_t rx_fill;
    std::atomic<std::uint8_t> is_connected;  // streaming, as the USB receiver thread last saw it
    std::uint32_t rx_searched;               // of rx_buffer, see parse_usb_stream
};

// The one record of the process.
UsbLink& usb_link();

// Sends one packet to the remote controller under the link's lock, after the read in progress. Returns 0 with
// nothing written while the IN endpoint is missing or no read has succeeded yet; else the bytes written, or
// -1 (a packet longer than the endpoint's, 512 bytes at high speed; a closed endpoint; a failed write). Any
// thread.
int usb_write_locked(std::span<const std::uint8_t> packet);

// 1 from the first successful read until the link ends. Any thread.
bool usb_streaming();

// Time of the last USB activity: the opening, both endpoints enabled, each successful read. Any thread.
std::uint32_t usb_last_activity_ms();

// usb_streaming, as copied every 100 ms: 1 while data flows from the remote controller. Any thread.
bool usb_is_connected();
