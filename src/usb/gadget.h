// The link to the remote controller: presents this board as a vendor-specific USB device with one bulk
// endpoint each way and runs the reader of the controller's stream. What others need of it is in
// link/usb_link.h.
#pragma once

#include <cstdint>

#include "usb/libusb-gadget/usb-gadget.h"

// Loads and mounts gadgetfs, opens the device, starts the USB receiver thread. Returns 0, or 1 with the
// reason printed. Main thread, once.
int gadget_init();

// Prepares the link's record and presents the device under these identifiers. Returns 0, or -1 with the
// reason printed. Main thread.
int gadget_open(std::uint16_t vendor_id, std::uint16_t product_id);

// Ends the link: sees the reader gone, releases the receive buffer, closes the device. USB receiver thread.
void gadget_exit();

// Waits up to 10 ms for control events and handles them. Returns 1 to go on, 0 when the link is to end. USB
// receiver thread.
int gadget_poll();

// Thread body: keeps the connected flag, handles control events while nothing streams; ends the process with
// code 1 when the link ends.
void* usb_receiver_thread(void*);

// Thread body: reads packets from the OUT endpoint, relays them to the TCP client, feeds them to the stream
// parser. Ends the process with code 3 when a read fails. Only the USB receiver thread cancels it.
void* usbRead_thread(void*);

// What the device's events do to the link. USB receiver thread.
void loopback_event_cb(usb_gadget_handle* handle, const usb_gadget_event* event, void* argument);
