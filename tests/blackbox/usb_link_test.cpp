// The data path of the USB link: what ends it, and what it does with what the host sends.
#include <csignal>
#include <functional>
#include <sstream>

#include "ardenvue.h"
#include "tests/blackbox/harness.h"

namespace {
using namespace blackbox;
using testing::MatchesRegex;

constexpr sim::SetupPacket select_configuration = {0x00, 9, 2, 0, 0};

struct End {
    std::function<void(Service&)> cause;
    int code;
    std::string from;        // where the last lines begin
    std::string last_lines;  // regular expression
};

// Without the lines of the main thread, which come at any time: its silences, and a companion that is not
// there.
std::string without_supervision(const std::string& errors) {
    std::istringstream lines{errors};
    std::string rest;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("delta ") && !line.starts_with("sh: ")) {
            rest += line + "\n";
        }
    }
    return rest;
}

void expect_end(const End& end) {
    Service service;
    ASSERT_TRUE(service.cable().wait_for_device(patience));
    end.cause(service);
    EXPECT_EQ(service.end_code(), end.code) << service.board().errors();
    const std::string errors = without_supervision(service.board().errors());
    const std::size_t from = errors.find(end.from);
    ASSERT_NE(from, std::string::npos) << errors;
    EXPECT_THAT(errors.substr(from), MatchesRegex(end.last_lines));
}

TEST(UsbLink, EveryEndHasItsLinesAndItsCode) {
    // Other threads may speak before the process is gone.
    const std::string read_failed = "read failed\n(USB connected\n)?(poll error or break!\n)?";
    const End ends[] = {
        // The first read asks for more than a packet of that speed.
        {[](Service& service) {
             service.cable().plug(sim::Speed::full);
             service.cable().control_past_kernel(select_configuration, Milliseconds{0});
         },
         3, "read failed", read_failed},
        {[](Service& service) {
             service.enumerate();
             service.cable().send_packet({});
         },
         3, "read failed", read_failed},
        // While the reader waits for its first packet.
        {[](Service& service) {
             service.enumerate();
             service.board().set_fault("poll");
         },
         1, "poll error", "poll error or break!\nUSB receiver exit\nExit gadget\n"},
        {[](Service& service) {
             service.board().set_fault("reader_thread");
             service.cable().plug(sim::Speed::high);
             service.cable().control_past_kernel(select_configuration, Milliseconds{0});
         },
         -SIGABRT, "usbRead_thread", "usbRead_thread create failed.*loopback_event_cb.*Assertion.*\n"},
        // Cancelled by a reset, and never configured again.
        {[](Service& service) {
             service.enumerate();
             EXPECT_TRUE(service.cable().inject({sim::disconnect_event()}, patience));
         },
         2, "USB connected", "USB connected\nUSB disconnected\nCamera connection timeout\n"},
        // Silence after the first packet.
        {[](Service& service) {
             service.enumerate();
             service.send(keep_alive_frame);
         },
         2, "USB connected", "USB connected\nCamera connection timeout\n"},
    };
    std::vector<std::thread> threads;  // side by side: most of the time is waiting
    for (const End& end : ends) {
        threads.emplace_back([&end] { expect_end(end); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(UsbLink, CommandWhoseWriteIsInterruptedIsSentOnce) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.stream(Milliseconds{10}));
    ASSERT_NE(service.command_port(), 0);
    service.cable().hold_in(true);
    service.command(R"({"cmd":"shot"})");
    for (int i = 0; i < 50; ++i) {  // the write is entered early on, and then waits for the host
        kill(service.board().process(), SIGSTOP);
        std::this_thread::sleep_for(Milliseconds{5});
        kill(service.board().process(), SIGCONT);
        std::this_thread::sleep_for(Milliseconds{5});
    }
    service.cable().hold_in(false);
    EXPECT_EQ(service.next_packet().size(), 14U);
    EXPECT_EQ(service.next_packet(Milliseconds{300}), Bytes{});
}

TEST(UsbLink, BufferThatNothingConsumesOverflowsAtThe97thRead) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.enumerate());
    // A frame that announces 65,535 bytes stays in the buffer until it is complete, which it can't be.
    Bytes packet(512, 0x11);
    const Bytes header = {0x55, 0xCC, 0x4A, 0x57, 0xFF, 0xFF, 0x00, 0x00};
    std::copy(header.begin(), header.end(), packet.begin());
    for (int reads = 1; reads <= 96; ++reads) {
        ASSERT_TRUE(service.send(packet));
    }
    // Read means read; that it was looked at too shows in what comes next. A status line is sent once a
    // second.
    EXPECT_GT(service.next_status().size(), 0U);
    EXPECT_EQ(service.board().errors().find("Buffer overflowed"), std::string::npos);
    ASSERT_TRUE(service.send(packet));
    EXPECT_TRUE(service.said("Buffer overflowed\n"));

    // All of it is gone, and the stream goes on with the next frame.
    const Bytes video = {0x55, 0xCC, 0x4A, 0x57, 0x03, 0x00, 0x00, 0x00, 0xA1, 0xB2, 0xC3};
    ASSERT_TRUE(service.send(video));
    ASSERT_TRUE(service.send(keep_alive_frame));
    const std::optional<sim::SharedMapping> ring = service.board().shared_memory(ardenvue::frame_ring_name);
    ASSERT_TRUE(ring);
    const auto* frames = reinterpret_cast<const ardenvue::FrameRing*>(ring->data.get());
    EXPECT_TRUE(eventually([&] { return __atomic_load_n(&frames->next_slot, __ATOMIC_ACQUIRE) == 1; }));
    EXPECT_EQ(Bytes(frames->slots[0].payload, frames->slots[0].payload + 3), (Bytes{0xA1, 0xB2, 0xC3}));
    EXPECT_EQ(service.board().errors().find("Buffer overflowed"),
              service.board().errors().rfind("Buffer overflowed"));
}
}  // namespace
