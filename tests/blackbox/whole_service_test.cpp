// The whole service on a board, from its start to its end: what has to hold on every board, simulated or
// real.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

#include "ardenvue.h"
#include "client/ring_reader.h"
#include "sim/remote/player.h"
#include "tests/blackbox/harness.h"

namespace {

using namespace blackbox;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

std::string model_of_board() {
#ifdef REAL_BOARD
    std::string model;
    std::getline(std::ifstream{"/sys/firmware/devicetree/base/model"}, model, '\0');
    return model;
#else
    return *BoardSetup{}.model;
#endif
}

TEST(WholeService, StartsOnItsBoard) {
    Service service;
    ASSERT_TRUE(service.said("TCP server: Waiting TCP client connection...\n")) << service.board().errors();
    EXPECT_THAT(service.board().errors(),
                StartsWith("\nDJI Phantom 4 USB client\nBoard model: " + model_of_board() +
                           "\nBoard supported\nInit telemetry buffer\n"));
    EXPECT_THAT(service.board().errors(), HasSubstr("USB device opened\nInit done\n"));
    EXPECT_EQ(service.board().run_file("board_supported"), "1");
    EXPECT_EQ(service.board().relay_port(patience).has_value(), true);
}

TEST(WholeService, EnumeratesWithItsIdentity) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.enumerate());
    EXPECT_TRUE(service.said("USB connected\n"));
    // What the kernel answers in the service's place, and requests that nobody answers.
    const auto status = [&](const sim::SetupPacket& setup) {
        return service.cable().control(setup, patience).status;
    };
    EXPECT_EQ(service.cable().control({0x80, 8, 0, 0, 1}, patience).data, Bytes{2});
    EXPECT_EQ(service.cable().control({0x81, 10, 0, 0, 1}, patience).data, Bytes{0});
    EXPECT_EQ(service.cable().control({0x80, 0, 0, 0, 2}, patience).data, (Bytes{0, 0}));
    EXPECT_EQ(service.cable().control({0x82, 0, 0, 0x86, 2}, patience).data, (Bytes{0, 0}));
    EXPECT_EQ(status({0x80, 6, 0x0363, 0x0409, 255}), sim::ControlStatus::stalled);
    EXPECT_EQ(status({0xC0, 51, 0, 0, 2}), sim::ControlStatus::stalled);
    EXPECT_EQ(status({0x21, 1, 0, 0, 0}), sim::ControlStatus::stalled);
    EXPECT_EQ(status({0x00, 9, 1, 0, 0}), sim::ControlStatus::stalled);
}

// What top, a debugger and a core dump tell its threads by; the sanitizers' own are none of it.
TEST(WholeService, NamesItsThreads) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.enumerate());
    const auto names = [&] {
        std::set<std::string> found;
        const std::string tasks = "/proc/" + std::to_string(service.board().process()) + "/task";
        for (const auto& task : std::filesystem::directory_iterator{tasks}) {
            std::string name;
            std::getline(std::ifstream{task.path() / "comm"}, name);
            found.insert(name);
        }
        return found;
    };
    EXPECT_TRUE(eventually([&] {
        return std::ranges::includes(names(), std::set<std::string>{"gimbal", "relay", "status", "udp-reader",
                                                                    "usb-reader", "usb-receiver"});
    })) << testing::PrintToString(names());
}

// The first pictures of a source.
class Beginning final : public sim::Source {
  public:
    Beginning(sim::Source& source, std::uint64_t pieces) : source_{source}, left_{pieces} {}
    std::optional<sim::Time> due() override { return left_ == 0 ? std::nullopt : source_.due(); }
    std::span<const std::uint8_t> take(sim::Time now) override {
        --left_;
        return source_.take(now);
    }

  private:
    sim::Source& source_;
    std::uint64_t left_;
};

TEST(WholeService, LosesNothingOfTheVideo) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.enumerate());
    const std::optional<sim::SharedMapping> memory = service.board().shared_memory(ardenvue::frame_ring_name);
    ASSERT_TRUE(memory);
    client::RingReader ring{*reinterpret_cast<const ardenvue::FrameRing*>(memory->data.get())};

    formats::VideoTally published;
    const auto read_ring = [&] {
        while (const std::optional<client::RingFrame> frame = ring.next()) {
            published.add(frame->payload);
        }
    };
    std::atomic<bool> played{false};
    std::thread reader{[&] {
        while (!played) {
            read_ring();
            std::this_thread::sleep_for(Milliseconds{1});
        }
    }};
    sim::Camera camera;
    sim::PacketLog log;
    const sim::Stopwatch stopwatch;
    sim::Player player{service.cable(), camera, log, stopwatch, [](const std::string&) {}};
    sim::LiveSource live{sim::load_clip(SIM_CLIPS "/1280x720.h264"),
                         camera,
                         {.frames_per_second = 120, .flat_out = false, .faults = {}},
                         stopwatch.now()};
    Beginning source{live, 600};  // pictures and pushes
    const std::atomic<bool> never{false};
    EXPECT_EQ(player.play(source, std::chrono::minutes{5}, never), sim::PlayEnd::source_ended);
    EXPECT_TRUE(player.send_closing_frame());
    played = true;
    reader.join();
    EXPECT_TRUE(eventually([&] {
        read_ring();
        return published.frames >= player.tally().video.frames;
    }));
    EXPECT_GT(published.frames, ardenvue::frame_slot_count);  // more than once around the ring
    EXPECT_EQ(published.frames, player.tally().video.frames);
    EXPECT_EQ(published.bytes, player.tally().video.bytes);
    EXPECT_EQ(published.digest, player.tally().video.digest);
    EXPECT_EQ(ring.totals().missed, 0U);
    EXPECT_EQ(service.board().run_file("video_width"), "1280");
    EXPECT_EQ(service.board().run_file("video_height"), "720");
    EXPECT_TRUE(camera.complaints().empty()) << camera.complaints().front();
}

TEST(WholeService, StreamsAfterTheHostDeselectedIt) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.enumerate());
    ASSERT_TRUE(service.said("USB connected\n"));
    // The reader waits in its first read; the endpoint files must be free again before they are opened anew.
    EXPECT_EQ(service.cable().control({0x00, 9, 0, 0, 0}, patience).status, sim::ControlStatus::acknowledged);
    EXPECT_TRUE(service.said("USB endpoint IN disabled\n"));
    EXPECT_TRUE(service.said("USB endpoint OUT disabled\n"));
    EXPECT_EQ(service.cable().control({0x00, 9, 2, 0, 0}, patience).status, sim::ControlStatus::acknowledged);
    EXPECT_TRUE(service.said("USB connected\n", 2));
    ASSERT_TRUE(service.send(keep_alive_frame));
    EXPECT_FALSE(service.next_status().empty());
}

TEST(WholeService, EndsWhenTheCableIsPulledAndStartsAnewWhenItIsBack) {
    Service service;
    for (const bool streaming : {false, true}) {  // its first read waits, or the stream flows
        SCOPED_TRACE(streaming);
        ASSERT_NO_FATAL_FAILURE(streaming ? service.stream() : service.enumerate());
        EXPECT_TRUE(service.said("USB connected\n"));
        service.cable().pull();
        EXPECT_EQ(service.end_code(), 3) << service.board().errors();
        EXPECT_THAT(service.board().errors(), HasSubstr("read failed\n"));
        service.start();
    }
    ASSERT_NO_FATAL_FAILURE(service.stream());
    EXPECT_FALSE(service.next_status().empty());
}

TEST(WholeService, EndsWithoutACameraAndStartsAnewOnTheSameGadgetFiles) {
    Service service;
    // Nothing is plugged in; then the host falls silent and stays plugged in.
    EXPECT_EQ(service.end_code(), 2) << service.board().errors();
    EXPECT_THAT(service.board().errors(), EndsWith("Camera connection timeout\n"));
    EXPECT_THAT(service.board().errors(), HasSubstr("delta "));
    service.start();
    ASSERT_NO_FATAL_FAILURE(service.stream());
    EXPECT_FALSE(service.next_status().empty());
    service.stop_keep_alive();
    EXPECT_EQ(service.end_code(), 2) << service.board().errors();
    EXPECT_THAT(service.board().errors(), EndsWith("Camera connection timeout\n"));
    service.start();
    ASSERT_NO_FATAL_FAILURE(service.stream());
    EXPECT_FALSE(service.next_status().empty());
}

}  // namespace
