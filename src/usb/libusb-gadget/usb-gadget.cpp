#include "usb/libusb-gadget/usb-gadget.h"

#include <endian.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>

#include "platform/relaxed.h"
#include "usb/libusb-gadget/endpoint_files.h"

namespace {
// The device controllers of the supported boards, as gadgetfs names their files.
constexpr std::string_view controller_names[] = {"fe980000.usb", "20980000.usb", "3f980000.usb", "musb-hdrc"};

// The largest packet of an open endpoint at the connection's speed.
std::size_t packet_size(const usb_gadget_endpoint& endpoint) {
    const bool is_high_speed = endpoint.handle->speed == USB_SPEED_HIGH && endpoint.hs_desc != nullptr;
    return le16toh((is_high_speed ? endpoint.hs_desc : endpoint.desc)->wMaxPacketSize);
}

// The file for one transfer of that length, or -1 with EINVAL.
int transfer_fd(const usb_gadget_endpoint& endpoint, std::size_t length, const char* caller) {
    const int fd = endpoint.fd;
    if (fd < 0) {
        usb_gadget_debug(endpoint.handle, 2, "libusb-gadget: %s: %s is closed\n", caller,
                         load_text(endpoint.name).text);
        errno = EINVAL;
        return -1;
    }
    if (length > packet_size(endpoint)) {
        usb_gadget_debug(endpoint.handle, 2, "libusb-gadget: %s: too long message\n", caller);
        errno = EINVAL;
        return -1;
    }
    return fd;
}
}  // namespace

usb_gadget_handle* usb_gadget_open(const usb_gadget_device* device) {
    if (device == nullptr || device->device == nullptr || device->config == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    const std::string controller = find_gadget_file([](std::string_view name) {
        return std::ranges::find(controller_names, name) != std::end(controller_names);
    });
    if (controller.empty()) {
        return nullptr;
    }
    auto handle = std::make_unique<usb_gadget_handle>();
    handle->device = device;
    handle->ep0 = make_endpoint(*handle, controller);
    return open_ep0(*handle) < 0 ? nullptr : handle.release();
}

int usb_gadget_close(usb_gadget_handle* handle) {
    if (handle == nullptr || !handle->ep0) {
        errno = EINVAL;
        return -1;
    }
    close(handle->ep0->fd);
    while (!handle->endpoints.empty()) {
        close_ep(*handle->endpoints.front());
    }
    delete handle;
    return 0;
}

void usb_gadget_set_event_cb(usb_gadget_handle* handle, usb_gadget_event_cb callback, void* argument) {
    handle->event_cb = callback;
    handle->event_arg = argument;
}

void usb_gadget_set_hold_cb(usb_gadget_handle* handle, usb_gadget_hold_cb callback) {
    handle->hold_cb = callback;
}

void usb_gadget_set_debug_level(usb_gadget_handle* handle, std::int32_t level) {
    handle->debug_level = level;
}

int usb_gadget_control_fd(const usb_gadget_handle* handle) {
    return handle->ep0->fd;
}

usb_gadget_endpoint* usb_gadget_find_endpoint(const usb_gadget_handle* handle, std::uint32_t number) {
    if (number == 0) {
        return handle->ep0.get();
    }
    const auto found = std::ranges::find_if(handle->endpoints, [&](const usb_gadget_endpoint* endpoint) {
        return endpoint_number(*endpoint->desc) == number;
    });
    return found == handle->endpoints.end() ? nullptr : *found;
}

void usb_gadget_endpoint_close(usb_gadget_endpoint* endpoint) {
    if (endpoint != nullptr && endpoint->fd >= 0) {
        close_ep(*endpoint);
    }
}

ssize_t usb_gadget_endpoint_read(usb_gadget_endpoint* endpoint, void* buffer, std::size_t length) {
    const int fd = transfer_fd(*endpoint, length, "usb_gadget_endpoint_read");
    return fd < 0 ? -1 : read(fd, buffer, length);
}

ssize_t usb_gadget_endpoint_write(usb_gadget_endpoint* endpoint, const void* data, std::size_t length) {
    const int fd = transfer_fd(*endpoint, length, "usb_gadget_endpoint_write");
    return fd < 0 ? -1 : write(fd, data, length);
}

void usb_gadget_debug(const usb_gadget_handle* handle, int /*level*/, const char* format, ...) {
    if (handle->debug_level <= 1) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fflush(stderr);
}
