// What only a real kernel can show: that its own host stack knows the device, that a host whose driver goes
// takes the link down and one whose driver comes back finds it again, what a host at full speed gets, and how
// fast the link is beside the least that a program can do.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/file_descriptor.h"
#include "sim/aircraft/packet.h"
#include "tests/blackbox/harness.h"

namespace {

using namespace blackbox;
using Clock = std::chrono::steady_clock;

std::string attribute(const std::filesystem::path& device, const std::string& name) {
    std::string text;
    std::getline(std::ifstream{device / name}, text);
    return text;
}

// What sysfs shows of the device that has our identifiers; empty when there is none.
std::filesystem::path find_device() {
    for (const auto& device : std::filesystem::directory_iterator{"/sys/bus/usb/devices"}) {
        if (attribute(device, "idVendor") == "18d1" && attribute(device, "idProduct") == "2d00") {
            return device.path();
        }
    }
    return {};
}

bool is_mounted(const std::string& directory) {
    std::ifstream mounts{"/proc/mounts"};
    for (std::string line; std::getline(mounts, line);) {
        if (line.find(" " + directory + " gadgetfs ") != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST(RealBoard, LoadsAndMountsGadgetfs) {
    Service service;
    EXPECT_FALSE(is_mounted("/dev/gadget"));
    EXPECT_TRUE(service.said("USB device opened\n"));
    EXPECT_TRUE(is_mounted("/dev/gadget"));
}

TEST(RealBoard, HostStackKnowsTheDevice) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.enumerate());
    const std::filesystem::path device = find_device();
    EXPECT_EQ(attribute(device, "manufacturer"), "Ardenvue");
    EXPECT_EQ(attribute(device, "product"), "Ardenvue USB");
    EXPECT_EQ(attribute(device, "serial"), "00000000");
    EXPECT_EQ(attribute(device, "configuration"), "The loopback");
    EXPECT_EQ(attribute(device, "bConfigurationValue"), "2");
    EXPECT_EQ(attribute(device, "bDeviceClass"), "ff");
    EXPECT_EQ(attribute(device, "speed"), "480");
}

TEST(RealBoard, ControllerInOtherHandsEndsTheStart) {
    Service service;
    ASSERT_TRUE(service.said("USB device opened\n"));
    service.board().kill();
    ASSERT_TRUE(service.board().wait_for_end(patience));
    const FileDescriptor controller{open("/dev/gadget/musb-hdrc", O_RDWR)};
    ASSERT_TRUE(controller);
    service.start();
    EXPECT_EQ(service.end_code(), 1);
    EXPECT_TRUE(service.said("Couldn't open USB device\nGadget init failed\n")) << service.board().errors();
}

TEST(RealBoard, HostThatLetsGoFindsTheDeviceAgainAfterTheRestart) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.stream());
    EXPECT_FALSE(service.next_status().empty());
    // The host's driver is taken off the device: the stream just stops.
    std::ofstream{"/sys/bus/usb/drivers/usb/unbind"} << find_device().filename().string() << std::flush;
    EXPECT_EQ(service.end_code(), 2) << service.board().errors();
    service.start();
    ASSERT_NO_FATAL_FAILURE(service.stream());
    EXPECT_FALSE(service.next_status().empty());
}

// The machine's controller, loaded anew by a command: nobody may hold its device.
void reload_controller(const std::string& load) {
    ASSERT_EQ(std::system(("rmmod dummy_hcd && " + load).c_str()), 0);
}

TEST(RealBoard, HostAtFullSpeedGetsNoStream) {
    ASSERT_NO_FATAL_FAILURE(reload_controller("modprobe dummy_hcd is_high_speed=0"));
    {
        Service service;
        ASSERT_TRUE(service.cable().wait_for_device(patience)) << service.board().errors();
        service.cable().plug(sim::Speed::full);  // the service may end in the middle of it
        // The first read asks for more than a packet of that speed.
        EXPECT_EQ(service.end_code(), 3) << service.board().errors();
        EXPECT_TRUE(service.said("read failed\n"));
    }
    reload_controller("modprobe dummy_hcd");
}

// Names of the gadget files that the process holds.
std::vector<std::string> gadget_files(pid_t process) {
    std::vector<std::string> names;
    for (const auto& fd : std::filesystem::directory_iterator{"/proc/" + std::to_string(process) + "/fd"}) {
        std::error_code ignored;
        const std::filesystem::path target = std::filesystem::read_symlink(fd.path(), ignored);
        if (target.parent_path() == "/dev/gadget") {
            names.push_back(target.filename());
        }
    }
    return names;
}

// One file for each endpoint, named as on a board: taken by its name, and when it is taken by somebody else
// the configuration, which can't be refused, leaves the device usable.
TEST(RealBoard, TakesTheOneFileOfEachEndpointByItsName) {
    ASSERT_NO_FATAL_FAILURE(reload_controller("insmod /usr/share/ardenvue/named_endpoints.ko"));
    {
        Service service;
        ASSERT_TRUE(service.cable().wait_for_device(patience)) << service.board().errors();
        {
            const FileDescriptor taken{open("/dev/gadget/ep2out", O_RDWR)};
            ASSERT_TRUE(taken);
            ASSERT_TRUE(service.cable().plug(sim::Speed::high));
            std::this_thread::sleep_for(Milliseconds{400});
            const sim::ControlResult product =
                service.cable().control({0x80, 6, 0x032D, 0x0409, 255}, Milliseconds{1000});
            EXPECT_EQ(product.data.size(), 26U);
        }
        for (const auto value : {std::uint16_t{0}, std::uint16_t{2}}) {
            EXPECT_EQ(service.cable().control({0x00, 9, value, 0, 0}, Milliseconds{1000}).status,
                      sim::ControlStatus::acknowledged);
        }
        EXPECT_TRUE(service.said("USB connected\n"));
        EXPECT_THAT(gadget_files(service.board().process()),
                    testing::UnorderedElementsAre("musb-hdrc", "ep6in", "ep2out"));
        ASSERT_NO_FATAL_FAILURE(service.keep_alive());
        EXPECT_FALSE(service.next_status().empty()) << service.board().errors();
    }
    reload_controller("modprobe dummy_hcd");
}

// Bytes a second that the device takes, measured at the host.
double throughput(sim::Cable& cable) {
    constexpr int frames = 256;  // about 8 MB
    const Bytes frame = sim::encode_frame(formats::FrameType::video, Bytes(30'000, 0x5A));
    EXPECT_TRUE(cable.bulk_out(frame));  // reader and buffers are warm
    Bytes stream;
    for (int i = 0; i < frames; ++i) {
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    const auto start = Clock::now();
    EXPECT_TRUE(cable.bulk_out(stream));
    return static_cast<double>(stream.size()) / std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

TEST(RealBoard, CarriesAsMuchAsABareReader) {
    std::vector<double> service_rates;
    std::vector<double> bare_rates;
    for (int round = 0; round < 3; ++round) {
        {
            Service service;
            ASSERT_NO_FATAL_FAILURE(service.enumerate());
            service_rates.push_back(throughput(service.cable()));
        }
        sim::RealBoard board{{}};
        board.start({"/usr/bin/bare_reader", {}, {}, ""});
        ASSERT_TRUE(board.cable().wait_for_device(patience)) << board.errors();
        ASSERT_TRUE(board.cable().plug(sim::Speed::high)) << board.errors();
        bare_rates.push_back(throughput(board.cable()));
    }
    const double ratio = median(service_rates) / median(bare_rates);
    std::printf("throughput: service %.0f bytes/s, bare reader %.0f bytes/s, ratio %.2f\n",
                median(service_rates), median(bare_rates), ratio);
    EXPECT_GE(ratio, 0.9);
}

}  // namespace
