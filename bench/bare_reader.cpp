// The least that a gadgetfs device can do: presents one bulk IN and one bulk OUT endpoint, reads the OUT
// endpoint 512 bytes at a time and throws the bytes away. What the service is measured against. Runs until it
// is ended.
#include <fcntl.h>
#include <linux/usb/gadgetfs.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "platform/file_descriptor.h"

namespace {

constexpr const char* controller = "/dev/gadget/musb-hdrc";
// Two of the fixed-function endpoints that the dummy controller offers.
constexpr const char* in_file = "/dev/gadget/ep6in-bulk";
constexpr const char* out_file = "/dev/gadget/ep2out-bulk";

// Tag, configuration at full speed, the same at high speed, device: what gadgetfs takes in one write.
constexpr std::array<std::uint8_t, 86> device_configuration = {
    0x00, 0x00, 0x00, 0x00,                                //
    0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0x00, 0xC0, 0x01,  //
    0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00,  //
    0x07, 0x05, 0x86, 0x02, 0x40, 0x00, 0x00,              //
    0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00,              //
    0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0x00, 0xC0, 0x01,  //
    0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00,  //
    0x07, 0x05, 0x86, 0x02, 0x00, 0x02, 0x00,              //
    0x07, 0x05, 0x02, 0x02, 0x00, 0x02, 0x00,              //
    0x12, 0x01, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00, 0xD1,
    0x18, 0x00, 0x2D, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01,
};
constexpr std::array<std::uint8_t, 18> in_configuration = {
    0x01, 0x00, 0x00, 0x00, 0x07, 0x05, 0x86, 0x02, 0x40,
    0x00, 0x00, 0x07, 0x05, 0x86, 0x02, 0x00, 0x02, 0x00,
};
constexpr std::array<std::uint8_t, 18> out_configuration = {
    0x01, 0x00, 0x00, 0x00, 0x07, 0x05, 0x02, 0x02, 0x40,
    0x00, 0x00, 0x07, 0x05, 0x02, 0x02, 0x00, 0x02, 0x00,
};

template <std::size_t size>
FileDescriptor open_configured(const char* path, const std::array<std::uint8_t, size>& configuration) {
    FileDescriptor file{open(path, O_RDWR)};
    if (!file || write(file.get(), configuration.data(), size) != static_cast<ssize_t>(size)) {
        std::perror(path);
        std::exit(1);
    }
    return file;
}

void read_and_discard(int endpoint) {
    std::array<std::uint8_t, 512> packet;
    while (read(endpoint, packet.data(), packet.size()) > 0) {
    }
}

}  // namespace

int main() {
    if (std::system("modprobe gadgetfs && mkdir -p /dev/gadget && mount -t gadgetfs none /dev/gadget") != 0) {
        return 1;
    }
    const FileDescriptor control = open_configured(controller, device_configuration);
    FileDescriptor in;
    FileDescriptor out;
    usb_gadgetfs_event event;
    while (read(control.get(), &event, sizeof event) == sizeof event) {
        if (event.type != GADGETFS_SETUP) {
            continue;
        }
        const bool to_host = (event.u.setup.bRequestType & USB_DIR_IN) != 0;
        if (event.u.setup.bRequest != USB_REQ_SET_CONFIGURATION) {
            // Refused: a transfer against the direction of the request.
            [[maybe_unused]] const ssize_t refused =
                to_host ? read(control.get(), nullptr, 0) : write(control.get(), nullptr, 0);
            continue;
        }
        in = FileDescriptor{};
        out = FileDescriptor{};
        in = open_configured(in_file, in_configuration);
        out = open_configured(out_file, out_configuration);
        std::thread{read_and_discard, out.get()}.detach();
        [[maybe_unused]] const ssize_t acknowledged = read(control.get(), nullptr, 0);
    }
    return 1;
}
