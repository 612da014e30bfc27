// A user of the gadget layer other than the service, with its diagnostics on: tells what it hears and, on
// each suspend event, tries transfers. Arguments: the debug level, and "high", "full" (no high-speed list) or
// "faulty" (a list that does not begin with a configuration).
#include <poll.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "usb/libusb-gadget/usb-gadget.h"

namespace {
constexpr std::uint8_t device_bytes[] = {0x12, 0x01, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00, 0x34,
                                         0x12, 0x78, 0x56, 0x00, 0x01, 0x00, 0x01, 0x00, 0x01};
constexpr std::uint8_t configuration[] = {0x09, 0x02, 0xFF, 0xFF, 0x01, 0x03, 0x00, 0xC0, 0x01};
constexpr std::uint8_t interface[] = {0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00};
constexpr std::uint8_t full_in[] = {0x07, 0x05, 0x81, 0x02, 0x40, 0x00, 0x00};
constexpr std::uint8_t full_out[] = {0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00};
constexpr std::uint8_t high_in[] = {0x07, 0x05, 0x81, 0x02, 0x00, 0x02, 0x00};
constexpr std::uint8_t high_out[] = {0x07, 0x05, 0x02, 0x02, 0x00, 0x02, 0x00};

const usb_descriptor_header* header(const std::uint8_t* bytes) {
    return reinterpret_cast<const usb_descriptor_header*>(bytes);
}
const usb_descriptor_header* const full_list[] = {header(configuration), header(interface), header(full_in),
                                                  header(full_out), nullptr};
const usb_descriptor_header* const high_list[] = {header(configuration), header(interface), header(high_in),
                                                  header(high_out), nullptr};
constexpr usb_gadget_string texts[] = {{1, "\xC3\xA9"}, {2, "\xF0\x9F\x9A\x81"}, {0, nullptr}};
constexpr usb_gadget_strings strings = {0x0407, texts};

usb_gadget_endpoint* in = nullptr;
usb_gadget_endpoint* out = nullptr;

void try_write(std::size_t size) {
    static std::uint8_t bytes[600];
    errno = 0;
    const ssize_t result = usb_gadget_endpoint_write(in, bytes, size);
    std::fprintf(stderr, "probe: write %zu gives %zd%s\n", size, result, errno == EINVAL ? " EINVAL" : "");
}

void hear(usb_gadget_handle* handle, const usb_gadget_event* event, void* argument) {
    std::fprintf(stderr, "%s: event %u of %u\n", static_cast<const char*>(argument),
                 static_cast<unsigned>(event->kind), event->number);
    if (event->kind == usb_gadget_event_kind::endpoint_enabled) {
        (event->number == 1 ? in : out) = usb_gadget_find_endpoint(handle, event->number);
    } else if (event->kind == usb_gadget_event_kind::suspended && in != nullptr && out != nullptr) {
        for (const std::size_t size : {65U, 512U, 513U}) {
            try_write(size);
        }
        std::uint8_t bytes[600];
        std::fprintf(stderr, "probe: read 513 gives %zd\n", usb_gadget_endpoint_read(out, bytes, 513));
    }
}
}  // namespace

int main(int argc, char* argv[]) {
    const std::string_view kind = argc == 3 ? argv[2] : "";
    const usb_gadget_device device = {
        .device = reinterpret_cast<const usb_device_descriptor*>(device_bytes),
        .config = full_list + (kind == "faulty" ? 1 : 0),
        .hs_config = kind == "high" ? high_list : nullptr,
        .strings = &strings,
    };
    usb_gadget_handle* handle = usb_gadget_open(&device);
    if (handle == nullptr) {
        std::fprintf(stderr, "probe: open failed%s\n", errno == EINVAL ? " EINVAL" : "");
        return EXIT_FAILURE;
    }
    char name[] = "probe";
    usb_gadget_set_event_cb(handle, hear, name);
    usb_gadget_set_debug_level(handle, std::atoi(argv[1]));
    pollfd entry = {usb_gadget_control_fd(handle), POLLIN, 0};
    while (poll(&entry, 1, -1) > 0 && usb_gadget_handle_events(handle) >= 0) {
    }
    std::fprintf(stderr, "probe: close gives %d\n", usb_gadget_close(handle));
    return EXIT_SUCCESS;
}
