// What may happen while the reader waits for its first packet: requests that the kernel lets nobody refuse,
// the host's SET_INTERFACE, a process that is stopped and continued. On a real kernel, too.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>

#include "tests/blackbox/harness.h"

namespace {
using namespace blackbox;
using sim::ControlStatus;

#ifdef REAL_BOARD
constexpr Milliseconds receiver_limit{
    200};  // the receiver looks every 100 ms; an emulated clock waits for it
#else
constexpr Milliseconds receiver_limit{2'000};
#endif
constexpr Milliseconds pause_of_the_host{400};  // the service has heard of everything by then

void expect_string(Service& service) {
    const sim::ControlResult product =
        service.cable().control({0x80, 6, 0x032D, 0x0409, 255}, receiver_limit);
    EXPECT_EQ(product.status, ControlStatus::acknowledged);
    EXPECT_EQ(product.data.size(), 26U);
}

void expect_data_flow(Service& service) {
    ASSERT_NO_FATAL_FAILURE(service.keep_alive());
    EXPECT_FALSE(service.next_status().empty()) << service.board().errors();
}

TEST(UsbWaiting, RequestsThatCannotBeStalledLeaveTheDeviceUsable) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.enumerate());
    for (const sim::SetupPacket& setup : {sim::SetupPacket{0x40, 0x34, 0, 0, 8},  // vendor
                                          sim::SetupPacket{0x21, 0x20, 0, 0, 7},  // class
                                          sim::SetupPacket{0x40, 0x34, 0, 0, 300}}) {
        service.cable().control(setup, receiver_limit);
        std::this_thread::sleep_for(pause_of_the_host);
        expect_string(service);
    }
    expect_data_flow(service);
}

TEST(UsbWaiting, SetInterfaceIsAcknowledgedTenTimes) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.enumerate());
    for (int i = 0; i < 10; ++i) {
        const auto result = service.cable().control({0x01, 11, 0, 0, 0}, receiver_limit);
        EXPECT_EQ(result.status, ControlStatus::acknowledged) << i;
    }
    expect_string(service);
    expect_data_flow(service);
}

// Field of /proc/PID/task/TID/status, proc(5).
std::string status_field(const std::filesystem::path& task, std::string_view name) {
    std::ifstream file{task / "status"};
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(name)) {
            return line.substr(line.find_first_not_of(" \t", name.size()));
        }
    }
    return {};
}

TEST(UsbWaiting, StoppedAndContinuedItGoesOnReading) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.enumerate());
    const pid_t process = service.board().process();
    const std::filesystem::path tasks = "/proc/" + std::to_string(process) + "/task";
    const auto stop_and_continue = [&] {
        ASSERT_EQ(kill(process, SIGSTOP), 0);
        EXPECT_TRUE(eventually(
            [&] { return status_field(tasks / std::to_string(process), "State:").starts_with("T"); }));
        ASSERT_EQ(kill(process, SIGCONT), 0);
    };
    for (int i = 0; i < 3; ++i) {
        stop_and_continue();
    }
    expect_data_flow(service);
    for (int i = 0; i < 3; ++i) {
        stop_and_continue();
    }
    EXPECT_FALSE(service.next_status().empty()) << service.board().errors();

    // Signals are the main thread's; but each worker takes the ones that its own faults raise.
    std::map<std::string, std::uint64_t> blocked;
    for (const auto& task : std::filesystem::directory_iterator{tasks}) {
        blocked[status_field(task.path(), "Name:")] |=
            std::stoull(status_field(task.path(), "SigBlk:"), nullptr, 16);
    }
    const auto bit = [](int signal) { return std::uint64_t{1} << (signal - 1); };
    for (const char* worker : {"usb-receiver", "usb-reader", "relay", "udp-reader", "status", "gimbal"}) {
        EXPECT_EQ(blocked[worker] & (bit(SIGCHLD) | bit(SIGTERM) | bit(SIGUSR1) | bit(SIGSEGV) | bit(SIGBUS)),
                  bit(SIGCHLD) | bit(SIGTERM) | bit(SIGUSR1))
            << worker;
    }
}
}  // namespace
