// The files of /dev/gadget: finding the ones that serve the device, opening them with their configuration,
// closing them. All on the thread of usb_gadget_handle_events, but for close_ep (see
// usb_gadget_endpoint_close).
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file_descriptor.h"
#include "usb/libusb-gadget/usb-gadget.h"

// The first entry of /dev/gadget, in the order in which the directory lists them, that is accepted; empty
// when there is none or the directory can't be read.
std::string find_gadget_file(const std::function<bool(std::string_view name)>& accepts);

// A record for a file of that name, not yet open.
std::unique_ptr<usb_gadget_endpoint> make_endpoint(usb_gadget_handle& handle, std::string_view name);

// Appends the list's descriptors, with the total length filled into the leading configuration descriptor.
// False with EINVAL when the list does not begin with one, or everything comes to more than 20,480 bytes.
bool append_descriptors(std::vector<std::uint8_t>& bytes, const usb_descriptor_header* const* list);

// Opens the controller's file and writes the device's configuration to it: tag 0, the two lists, the device
// descriptor. Returns 0, or -1 with the file closed.
int open_ep0(usb_gadget_handle& handle);

// Whether a file of this name serves the endpoint: "ep" and a number, perhaps a direction, perhaps a transfer
// type
// ("ep6in-bulk"), each as the descriptor wants it; or "ep" and something else ("ep-a"), which serves any.
bool endpoint_file_fits(std::string_view name, const usb_endpoint_descriptor& descriptor);

// Opens a file for each endpoint of the full-speed list, in list order, and reports each as enabled. Returns
// 0, or -1 at the first that fails: the ones before it stay open.
int set_config(usb_gadget_handle& handle);

// Takes an endpoint off the handle's list and its file from it, for the caller to close; the record stays.
FileDescriptor detach_file(usb_gadget_endpoint& endpoint);

// detach_file, and closes the file.
void close_ep(usb_gadget_endpoint& endpoint);

// Tells the callback, when there is one.
void report_event(usb_gadget_handle& handle, usb_gadget_event_kind kind, std::uint32_t number = 0);

// The bits of bEndpointAddress that number the endpoint (USB 2.0, table 9-13).
inline std::uint32_t endpoint_number(const usb_endpoint_descriptor& descriptor) {
    return descriptor.bEndpointAddress & USB_ENDPOINT_NUMBER_MASK;
}
