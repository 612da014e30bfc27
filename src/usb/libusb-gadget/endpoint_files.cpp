#include "usb/libusb-gadget/endpoint_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "platform/little_endian.h"
#include "platform/relaxed.h"

namespace {
constexpr std::string_view gadget_directory = "/dev/gadget";
constexpr std::size_t max_configuration_size = 20'480;
constexpr std::size_t total_length_offset = 2;
// The kernel's record has room for the audio classes' two extra bytes; only those of USB 2.0, 9.6.6 are sent.
constexpr std::size_t endpoint_descriptor_size = USB_DT_ENDPOINT_SIZE;

void append(std::vector<std::uint8_t>& bytes, const void* data, std::size_t size) {
    const auto* first = static_cast<const std::uint8_t*>(data);
    bytes.insert(bytes.end(), first, first + size);
}

std::vector<std::uint8_t> tagged(std::uint32_t tag) {
    std::vector<std::uint8_t> bytes(sizeof tag);
    std::memcpy(bytes.data(), &tag, sizeof tag);  // the kernel reads it in its own byte order
    return bytes;
}

// Opens the endpoint's file and gives it its configuration, in one write.
int open_and_configure(usb_gadget_endpoint& endpoint, const std::vector<std::uint8_t>& configuration,
                       const char* caller) {
    const std::string path = std::string{gadget_directory} + "/" + endpoint.name;
    FileDescriptor file{open(path.c_str(), O_RDWR | O_CLOEXEC)};
    if (!file) {
        return -1;
    }
    if (write(file.get(), configuration.data(), configuration.size()) < 0) {
        usb_gadget_debug(endpoint.handle, 2, "libusb-gadget: %s: can't write config\n", caller);
        return -1;
    }
    endpoint.fd = file.release();
    return 0;
}

int open_ep(usb_gadget_endpoint& endpoint, const usb_endpoint_descriptor& descriptor,
            const usb_endpoint_descriptor* high_speed) {
    std::vector<std::uint8_t> configuration = tagged(1);
    append(configuration, &descriptor, endpoint_descriptor_size);
    if (high_speed != nullptr) {
        append(configuration, high_speed, endpoint_descriptor_size);
    }
    return open_and_configure(endpoint, configuration, "open_ep");
}

const usb_endpoint_descriptor* as_endpoint(const usb_descriptor_header* descriptor) {
    return descriptor->bDescriptorType == USB_DT_ENDPOINT
               ? reinterpret_cast<const usb_endpoint_descriptor*>(descriptor)
               : nullptr;
}

const usb_endpoint_descriptor* find_descriptor(const usb_descriptor_header* const* list,
                                               std::uint32_t number) {
    for (; list != nullptr && *list != nullptr; ++list) {
        const usb_endpoint_descriptor* descriptor = as_endpoint(*list);
        if (descriptor != nullptr && endpoint_number(*descriptor) == number) {
            return descriptor;
        }
    }
    return nullptr;
}

std::string find_ep(const usb_gadget_handle& handle, const usb_endpoint_descriptor& descriptor) {
    assert(handle.ep0);
    return find_gadget_file([&](std::string_view name) {
        const auto is_open = [&](const usb_gadget_endpoint* endpoint) { return name == endpoint->name; };
        return name != handle.ep0->name && std::ranges::none_of(handle.endpoints, is_open) &&
               endpoint_file_fits(name, descriptor);
    });
}

bool skip_prefix(std::string_view& text, std::string_view prefix) {
    const bool found = text.starts_with(prefix);
    text.remove_prefix(found ? prefix.size() : 0);
    return found;
}

// Opens one endpoint and puts it at the front of the list.
int enable_endpoint(usb_gadget_handle& handle, const usb_endpoint_descriptor& descriptor) {
    const std::uint32_t number = endpoint_number(descriptor);
    assert(number);
    const usb_endpoint_descriptor* high_speed = find_descriptor(handle.device->hs_config, number);
    const std::string file = find_ep(handle, descriptor);
    if (file.empty()) {
        usb_gadget_debug(&handle, 2, "libusb-gadget: set_config: find_ep failed\n");
        return -1;
    }
    std::unique_ptr<usb_gadget_endpoint> endpoint = make_endpoint(handle, file);
    if (open_ep(*endpoint, descriptor, high_speed) < 0) {
        usb_gadget_debug(&handle, 2, "libusb-gadget: set_config: %s open failed\n", file.c_str());
        return -1;
    }
    usb_gadget_debug(&handle, 2, "libusb-gadget: set_config: %s opened\n", file.c_str());
    endpoint->desc = &descriptor;
    endpoint->hs_desc = high_speed;
    handle.endpoints.insert(handle.endpoints.begin(), endpoint.get());
    handle.records.push_back(std::move(endpoint));
    report_event(handle, usb_gadget_event_kind::endpoint_enabled, number);
    return 0;
}
}  // namespace

std::string find_gadget_file(const std::function<bool(std::string_view)>& accepts) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory{opendir(gadget_directory.data()), closedir};
    if (!directory) {
        return {};
    }
    while (const dirent* entry = readdir(directory.get())) {
        if (accepts(entry->d_name)) {
            return entry->d_name;
        }
    }
    return {};
}

std::unique_ptr<usb_gadget_endpoint> make_endpoint(usb_gadget_handle& handle, std::string_view name) {
    auto endpoint = std::make_unique<usb_gadget_endpoint>();
    name.copy(endpoint->name, NAME_MAX);
    endpoint->handle = &handle;
    endpoint->fd = -1;
    return endpoint;
}

bool append_descriptors(std::vector<std::uint8_t>& bytes, const usb_descriptor_header* const* list) {
    const std::size_t start = bytes.size();
    for (const usb_descriptor_header* const* entry = list; *entry != nullptr; ++entry) {
        append(bytes, *entry, (*entry)->bLength);
    }
    const std::size_t length = bytes.size() - start;
    if (*list == nullptr || (*list)->bDescriptorType != USB_DT_CONFIG ||
        bytes.size() > max_configuration_size) {
        errno = EINVAL;
        return false;
    }
    store_le16(bytes.data() + start + total_length_offset, static_cast<std::uint16_t>(length));
    return true;
}

int open_ep0(usb_gadget_handle& handle) {
    std::vector<std::uint8_t> configuration = tagged(0);
    const usb_gadget_device& device = *handle.device;
    if (!append_descriptors(configuration, device.config) ||
        (device.hs_config != nullptr && !append_descriptors(configuration, device.hs_config))) {
        return -1;
    }
    append(configuration, device.device, USB_DT_DEVICE_SIZE);
    return open_and_configure(*handle.ep0, configuration, "open_ep0");
}

bool endpoint_file_fits(std::string_view name, const usb_endpoint_descriptor& descriptor) {
    if (!skip_prefix(name, "ep")) {
        return false;
    }
    if (name.empty() || name[0] < '0' || name[0] > '9') {
        return true;
    }
    std::uint32_t number = 0;
    const auto [rest, error] = std::from_chars(name.begin(), name.end(), number);
    if (error != std::errc{} || number != endpoint_number(descriptor)) {
        return false;
    }
    name.remove_prefix(static_cast<std::size_t>(rest - name.begin()));
    const bool is_in = (descriptor.bEndpointAddress & USB_ENDPOINT_DIR_MASK) == USB_DIR_IN;
    if (skip_prefix(name, "in")) {
        if (!is_in) {
            return false;
        }
    } else if (skip_prefix(name, "out") && is_in) {
        return false;
    }
    struct TypeName {
        std::string_view suffix;
        int type;
    };
    static constexpr TypeName type_names[] = {
        {"-bulk", USB_ENDPOINT_XFER_BULK},
        {"-iso", USB_ENDPOINT_XFER_ISOC},
        {"-int", USB_ENDPOINT_XFER_INT},
    };
    const auto* named = std::ranges::find(type_names, name, &TypeName::suffix);
    return named == std::end(type_names) ||
           named->type == (descriptor.bmAttributes & USB_ENDPOINT_XFERTYPE_MASK);
}

int set_config(usb_gadget_handle& handle) {
    for (const usb_descriptor_header* const* entry = handle.device->config; *entry != nullptr; ++entry) {
        const usb_endpoint_descriptor* descriptor = as_endpoint(*entry);
        if (descriptor != nullptr && enable_endpoint(handle, *descriptor) < 0) {
            return -1;
        }
    }
    return 0;
}

FileDescriptor detach_file(usb_gadget_endpoint& endpoint) {
    std::erase(endpoint.handle->endpoints, &endpoint);
    store_text(endpoint.name, "");
    return FileDescriptor{endpoint.fd.exchange(-1)};
}

void close_ep(usb_gadget_endpoint& endpoint) {
    detach_file(endpoint);
}

void report_event(usb_gadget_handle& handle, usb_gadget_event_kind kind, std::uint32_t number) {
    if (handle.event_cb != nullptr) {
        const usb_gadget_event event{kind, number};
        handle.event_cb(&handle, &event, handle.event_arg);
    }
}
