// The remote controller at its quietest: streams frames without content over the kernel's own USB host stack,
// one a twentieth of a second, until it is ended.
#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>

int main(int argc, char** argv) {
    const int device = argc == 2 ? open(argv[1], O_RDWR) : -1;
    unsigned interface = 0;
    if (device < 0 || ioctl(device, USBDEVFS_CLAIMINTERFACE, &interface) < 0) {
        std::perror("cable");
        return 1;
    }
    std::array<std::uint8_t, 512> frame{0x55, 0xCC, 0x49, 0x57, 0xF8, 0x01};
    usbdevfs_bulktransfer transfer{2, frame.size(), 1000, frame.data()};
    while (ioctl(device, USBDEVFS_BULK, &transfer) == static_cast<int>(frame.size())) {
        usleep(50'000);
    }
    std::perror("cable");
    return 1;
}
