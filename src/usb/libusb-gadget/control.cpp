// The control endpoint: the kernel's events, and the answers to the standard requests that it leaves to us. A
// data stage is a write; a request without one is acknowledged by an empty read; an empty transfer against
// the request's direction stalls it.
#include <endian.h>
#include <linux/usb/gadgetfs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/file_descriptor.h"
#include "platform/interrupted.h"
#include "usb/libusb-gadget/endpoint_files.h"
#include "usb/libusb-gadget/usb-gadget.h"

static_assert(sizeof(usb_gadgetfs_event) == 12);

namespace {
constexpr std::size_t events_at_once = 5;

struct Request {
    std::uint8_t request_type;
    std::uint8_t request;
    std::uint16_t value;
    std::uint16_t index;
    std::uint16_t length;
};

// An answer to one request: true when it has been given, false when the request is to be stalled.
using Answer = bool (*)(usb_gadget_handle&, const Request&);

// The kernel has taken the data of a request by itself, and has accepted a SET_CONFIGURATION, before we hear
// of it, and lets neither be stalled; a request that the host has given up for a newer one leaves that in its
// place. Until they are ended the kernel reports no other event. What is read is less than an event: if there
// is nothing to end any more, the read fails and takes nothing.
void end_request(const usb_gadget_handle& handle, std::size_t length) {
    std::uint8_t ignored[sizeof(usb_gadgetfs_event) - 1];
    [[maybe_unused]] const ssize_t size =
        past_interruptions([&] { return read(handle.ep0->fd, ignored, std::min(sizeof ignored, length)); });
}

// Of a failed answer: the host wants something newer, of which the next event tells.
void end_if_given_up(const usb_gadget_handle& handle, ssize_t result) {
    if (result == -1 && errno == EIDRM) {
        end_request(handle, 0);
    }
}

bool send_data(const usb_gadget_handle& handle, const Request& request, const void* data, std::size_t size) {
    end_if_given_up(handle, write(handle.ep0->fd, data, std::min<std::size_t>(size, request.length)));
    return true;
}

bool acknowledge(const usb_gadget_handle& handle) {
    std::uint8_t nothing = 0;
    end_if_given_up(handle, read(handle.ep0->fd, &nothing, 0));
    return true;
}

void stall(const usb_gadget_handle& handle, const Request& request) {
    std::uint8_t nothing = 0;
    if ((request.request_type & USB_DIR_IN) != 0) {
        end_if_given_up(handle, read(handle.ep0->fd, &nothing, 0));
    } else if (write(handle.ep0->fd, &nothing, 0) == -1 && errno != EL2HLT) {
        end_request(handle, errno == EIDRM ? 0 : request.length);
    }
}

bool get_descriptor(usb_gadget_handle& handle, const Request& request) {
    const usb_gadget_device& device = *handle.device;
    switch (request.value >> 8) {
        case USB_DT_DEVICE:
            return send_data(handle, request, device.device, USB_DT_DEVICE_SIZE);
        case USB_DT_CONFIG: {
            std::vector<std::uint8_t> descriptors;
            return append_descriptors(descriptors,
                                      device.hs_config != nullptr ? device.hs_config : device.config) &&
                   send_data(handle, request, descriptors.data(), descriptors.size());
        }
        case USB_DT_STRING: {
            std::uint8_t descriptor[256];
            const int size = usb_gadget_get_string(
                device.strings, static_cast<std::uint8_t>(request.value & 0xFF), descriptor);
            return size >= 0 && send_data(handle, request, descriptor, static_cast<std::size_t>(size));
        }
        default:
            return false;
    }
}

// The callback hears of an endpoint when its record is closed but its file is not yet: it can see to it that
// no thread is inside a transfer, for a descriptor closed under one might name another file by the time it is
// used.
void deselect_configuration(usb_gadget_handle& handle) {
    const std::vector<usb_gadget_endpoint*> closing = handle.endpoints;
    std::vector<FileDescriptor> files;
    files.reserve(closing.size());
    for (usb_gadget_endpoint* endpoint : closing) {
        files.push_back(detach_file(*endpoint));
    }
    for (const usb_gadget_endpoint* endpoint : closing) {
        report_event(handle, usb_gadget_event_kind::endpoint_disabled, endpoint_number(*endpoint->desc));
    }
}

bool set_configuration(usb_gadget_handle& handle, const Request& request) {
    if (request.value == 0) {
        deselect_configuration(handle);
        return acknowledge(handle);
    }
    const auto* configuration = reinterpret_cast<const usb_config_descriptor*>(handle.device->config[0]);
    if (request.value != configuration->bConfigurationValue) {
        errno = EINVAL;
    } else if (set_config(handle) == 0) {
        return acknowledge(handle);
    }
    usb_gadget_debug(&handle, 2, "libusb-gadget: setup: set_config failed\n");
    return false;
}

bool get_interface(usb_gadget_handle& handle, const Request& request) {
    if (request.index != 0 || request.length > 1) {
        return false;
    }
    const std::uint8_t alternate_setting = 0;
    return send_data(handle, request, &alternate_setting, 1);
}

void hold_transfers(usb_gadget_handle& handle, bool hold) {
    if (handle.hold_cb != nullptr) {
        handle.hold_cb(&handle, hold);
    }
}

bool set_interface(usb_gadget_handle& handle, const Request& request) {
    if (request.value != 0 || request.index != 0) {
        return false;
    }
    int result = 0;
    hold_transfers(handle, true);
    for (const usb_gadget_endpoint* endpoint : handle.endpoints) {
        const int fd = endpoint->fd;
        usb_gadget_debug(&handle, 2, "libusb-gadget: setup: clear halt %s %d %d\n", endpoint->name, fd,
                         result);
        if (fd > 0 && past_interruptions([&] { return ioctl(fd, GADGETFS_CLEAR_HALT); }) < 0) {
            result = -1;
        }
    }
    hold_transfers(handle, false);
    return result >= 0 && acknowledge(handle);
}

struct StandardRequest {
    std::uint8_t request;
    std::uint8_t request_type;
    Answer answer;
};

// What is not in here is stalled: other standard requests (the kernel answers most of them itself), these
// with another recipient or direction, and every class and vendor request.
constexpr StandardRequest standard_requests[] = {
    {USB_REQ_GET_DESCRIPTOR, USB_DIR_IN | USB_TYPE_STANDARD | USB_RECIP_DEVICE, get_descriptor},
    {USB_REQ_SET_CONFIGURATION, USB_DIR_OUT | USB_TYPE_STANDARD | USB_RECIP_DEVICE, set_configuration},
    {USB_REQ_GET_INTERFACE, USB_DIR_IN | USB_TYPE_STANDARD | USB_RECIP_INTERFACE, get_interface},
    {USB_REQ_SET_INTERFACE, USB_DIR_OUT | USB_TYPE_STANDARD | USB_RECIP_INTERFACE, set_interface},
};

void handle_setup(usb_gadget_handle& handle, const usb_ctrlrequest& control) {
    const Request request{control.bRequestType, control.bRequest, le16toh(control.wValue),
                          le16toh(control.wIndex), le16toh(control.wLength)};
    usb_gadget_debug(&handle, 2,
                     "libusb-gadget: setup: ctrl->bRequestType = %d, ctrl->bRequest = %d, ctrl->wValue = %d, "
                     "ctrl->wIndex = %d, ctrl->wLength = %d\n",
                     request.request_type, request.request, request.value, request.index, request.length);
    const auto* row = std::ranges::find_if(standard_requests, [&](const StandardRequest& standard) {
        return standard.request == request.request && standard.request_type == request.request_type;
    });
    if (row == std::end(standard_requests) || !row->answer(handle, request)) {
        stall(handle, request);
    }
}

void handle_event(usb_gadget_handle& handle, const std::uint8_t* event) {
    // Copied out as integers: a newer kernel may know values that our header's enumerations do not.
    std::uint32_t type = 0;
    std::memcpy(&type, event + offsetof(usb_gadgetfs_event, type), sizeof type);
    usb_gadget_debug(&handle, 2, "libusb-gadget: event %d\n", static_cast<int>(type));
    switch (type) {
        case GADGETFS_CONNECT:
            if (handle.event_cb != nullptr) {
                std::int32_t speed = 0;
                std::memcpy(&speed, event, sizeof speed);
                handle.speed = speed;
                usb_gadget_debug(&handle, 2, "libusb-gadget: connected with speed %d\n", speed);
                report_event(handle, usb_gadget_event_kind::connected);
            }
            break;
        case GADGETFS_DISCONNECT:
            if (handle.event_cb != nullptr) {
                handle.speed = 0;
                report_event(handle, usb_gadget_event_kind::disconnected);
            }
            break;
        case GADGETFS_SETUP: {
            usb_ctrlrequest control{};
            std::memcpy(&control, event, sizeof control);
            handle_setup(handle, control);
            break;
        }
        case GADGETFS_SUSPEND:
            report_event(handle, usb_gadget_event_kind::suspended);
            break;
        default:
            break;
    }
}
}  // namespace

int usb_gadget_handle_events(usb_gadget_handle* handle) {
    std::uint8_t events[events_at_once * sizeof(usb_gadgetfs_event)];
    const ssize_t size = read(handle->ep0->fd, events, sizeof events);
    if (size < 0) {
        return -1;
    }
    const std::size_t count = static_cast<std::size_t>(size) / sizeof(usb_gadgetfs_event);
    usb_gadget_debug(handle, 2, "libusb-gadget: %d events received\n", static_cast<int>(count));
    for (std::size_t i = 0; i < count; ++i) {
        handle_event(*handle, events + i * sizeof(usb_gadgetfs_event));
    }
    return static_cast<int>(count);
}
