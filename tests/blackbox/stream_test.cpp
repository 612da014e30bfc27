// The remote controller's whole stream through the shipped executable: a clip and a camera at work on one
// side, ring, files and datagrams on the other.
#include <array>
#include <memory>

#include "ardenvue.h"
#include "formats/capture_file.h"
#include "sim/board/loopback.h"
#include "sim/remote/player.h"
#include "tests/blackbox/harness.h"

namespace {

using namespace blackbox;
using namespace std::chrono_literals;
using sim::AccessUnit;
using sim::Time;

// A service, and the remote controller playing to it.
class Playing {
  public:
    Service service;
    sim::Camera camera;
    sim::Stopwatch stopwatch;

    Playing() {
        service.enumerate();
        player_.emplace(service.cable(), camera, log_, stopwatch, [](const std::string&) {});
    }
    ~Playing() { stop_background(); }

    // Plays until the time is over, and gets the last frame through.
    void play(sim::Source& source, Time length) {
        const sim::PlayEnd end = player_->play(source, stopwatch.now() + length, stop_);
        ASSERT_NE(end, sim::PlayEnd::device_gone) << service.board().errors();
        ASSERT_TRUE(player_->send_closing_frame());
    }

    // Plays until stop_background(), or its own end.
    void play_in_background(std::unique_ptr<sim::Source> source) {
        source_ = std::move(source);
        background_ = std::thread{[this] { player_->play(*source_, Time::max(), stop_); }};
    }
    void stop_background() {
        stop_ = true;
        if (background_.joinable()) {
            background_.join();
        }
        stop_ = false;
    }
    // Stops, then plays what was played in the background for so long still.
    void finish_background(Time length) {
        stop_background();
        play(*source_, length);
    }

    const sim::PlayTally& tally() const { return player_->tally(); }

    // A status line sent after all that was played.
    std::string final_status() {
        while (service.main_application().receive(0ms)) {
        }
        return service.next_status();
    }

    // The payloads in the ring, once so many frames have come; of the first lap only.
    std::vector<Bytes> ring(std::uint64_t frames) {
        EXPECT_LE(frames, ardenvue::frame_slot_count) << "the ring no longer holds the first ones";
        const auto mapping = service.board().shared_memory(ardenvue::frame_ring_name);
        const auto& ring = *reinterpret_cast<const ardenvue::FrameRing*>(mapping->data.get());
        const auto count = static_cast<std::uint16_t>(frames % ardenvue::frame_slot_count);
        EXPECT_TRUE(eventually([&] { return next_slot(ring) == count; })) << next_slot(ring);
        std::vector<Bytes> payloads;
        for (std::size_t i = 0; i < frames; ++i) {
            const ardenvue::FrameSlot& slot = ring.slots[i];
            EXPECT_EQ(slot.frame_number, i);
            payloads.emplace_back(slot.payload, slot.payload + slot.length_low);
        }
        return payloads;
    }

  private:
    static std::uint16_t next_slot(const ardenvue::FrameRing& ring) {
        return __atomic_load_n(&ring.next_slot, __ATOMIC_ACQUIRE);
    }

    sim::PacketLog log_;
    std::atomic<bool> stop_{false};
    std::optional<sim::Player> player_;
    std::unique_ptr<sim::Source> source_;
    std::thread background_;
};

std::vector<AccessUnit> clip(const std::string& size) {
    return sim::load_clip(SIM_CLIPS "/" + size + ".h264");
}

// The first so many payloads of the clip in its loop.
std::vector<Bytes> payloads_of(const std::vector<AccessUnit>& clip, std::size_t count) {
    std::vector<Bytes> payloads;
    for (std::size_t picture = 0; payloads.size() < count; ++picture) {
        for (const Bytes& payload : clip[picture % clip.size()].payloads) {
            payloads.push_back(payload);
        }
    }
    payloads.resize(count);
    return payloads;
}

// Clean, then with another picture size, garbage between the frames and damaged pushes among them.
TEST(Stream, OfAClipArrivesWhole) {
    Playing playing;
    const std::vector<AccessUnit> small = clip("1280x720");
    const std::vector<AccessUnit> large = clip("1920x1080");

    sim::LiveSource clean{small, playing.camera, {30, false, {}}, playing.stopwatch.now()};
    do {
        ASSERT_NO_FATAL_FAILURE(playing.play(clean, 1s));
    } while (playing.tally().video.frames <= 10);
    const auto first = static_cast<std::size_t>(playing.tally().video.frames);
    std::vector<Bytes> expected = payloads_of(small, first);
    EXPECT_EQ(playing.ring(first), expected);
    EXPECT_EQ(playing.service.board().run_file("video_width"), "1280");
    EXPECT_EQ(playing.service.board().run_file("video_height"), "720");

    sim::LiveSource faulty{
        large, playing.camera, {30, false, {sim::max_garbage, true}}, playing.stopwatch.now()};
    do {
        ASSERT_NO_FATAL_FAILURE(playing.play(faulty, 1500ms));
    } while (faulty.corrupted_packets() <= 5);
    const auto all = static_cast<std::size_t>(playing.tally().video.frames);
    const std::vector<Bytes> second = payloads_of(large, all - first);
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(playing.ring(all), expected);
    EXPECT_EQ(playing.service.board().run_file("video_width"), "1920");
    EXPECT_EQ(playing.service.board().run_file("video_height"), "1080");

    // Nothing of the faults was taken for something.
    EXPECT_NE(playing.service.next_status({"camera_detected=1,", "camera_model=Phantom 4 Pro,", "sd=30.4G,",
                                           "shots_left=3412,", "battery_level=87,", "battery_temp=31.2,",
                                           "format=3840x2160@30,", "shutter=1/200,", "aperture=5.6,", "ev=0,",
                                           "color_mode=truecolor,", "wb_temp=6800,"}),
              "");
    EXPECT_THAT(playing.service.board().errors(), testing::Not(testing::HasSubstr("WRONG")));
    EXPECT_THAT(playing.camera.complaints(), testing::IsEmpty());
}

// Receives the raw stream from the relay into a capture.
class Recorder {
  public:
    Recorder(std::uint16_t port, const std::string& path) : fd_{sim::connect_to(port)} {
        if (!writer_.open(path) || !fd_) {
            throw std::runtime_error("no recorder");
        }
        thread_ = std::thread{[this] {
            std::uint8_t buffer[4096];
            for (ssize_t count = 0; (count = recv(fd_.get(), buffer, sizeof buffer, 0)) > 0;) {
                const std::span piece{buffer, static_cast<std::size_t>(count)};
                writer_.write(formats::Direction::from_remote, piece);
                recorded_ += piece.size();
                last_ = piece.back();
            }
        }};
    }
    // Waits until the stream is passed on to it: the line that says so comes a moment before. What is sent
    // for that, frames whose content is no packet, does not count.
    bool begin(Service& service) {
        Bytes frame = {0x55, 0xCC, 0x49, 0x57, 0x01, 0x00, 0x00, 0x00, 0x00};
        const bool passed_on = eventually([&] {
            frame.back() = static_cast<std::uint8_t>(frame.back() % 0x40 + 1);
            return service.send(frame) && eventually([&] { return last_ == frame.back(); }, 200ms);
        });
        before_ = recorded_;
        return passed_on;
    }
    // Ends the recording once it holds that many bytes since.
    bool finish(std::uint64_t bytes) {
        const bool complete = eventually([&] { return recorded_ - before_ == bytes; });
        shutdown(fd_.get(), SHUT_RDWR);
        thread_.join();
        return writer_.flush() && complete;
    }

  private:
    FileDescriptor fd_;
    formats::CaptureWriter writer_;
    std::atomic<std::uint64_t> recorded_{0};
    std::atomic<std::uint8_t> last_{0};  // byte of the last piece
    std::uint64_t before_ = 0;
    std::thread thread_;
};

// The focus positions that the main application was told of, each once in a row, up to the given last one.
std::vector<int> focus_positions(Service& service, int last) {
    std::vector<int> seen;
    service.next_datagram([&](const Datagram& datagram) {
        if (datagram.bytes.size() == sizeof(ardenvue::GimbalFocusRecord) && datagram.bytes[12] == 1) {
            const int position = datagram.bytes[17] | datagram.bytes[18] << 8;
            if (seen.empty() || seen.back() != position) {
                seen.push_back(position);
            }
        }
        return !seen.empty() && seen.back() == last;
    });
    return seen;
}

TEST(Stream, ReplayedFromACaptureIsTheSame) {
    const std::string path = testing::TempDir() + "stream." + std::to_string(getpid());
    const std::vector<int> expected_positions = {430, 250, 500, 750};
    std::vector<Bytes> recorded;
    std::string recorded_status;
    {
        Playing playing;
        const auto port = playing.service.board().relay_port(patience);
        ASSERT_TRUE(port);
        Recorder recorder{*port, path};
        ASSERT_TRUE(recorder.begin(playing.service));
        playing.play_in_background(std::make_unique<sim::LiveSource>(clip("1280x720"), playing.camera,
                                                                     sim::LiveSource::Options{20, false, {}},
                                                                     playing.stopwatch.now()));
        std::vector<int> seen = focus_positions(playing.service, 430);
        for (const char* percent : {"25", "50", "75"}) {
            // Further apart than the half second of delay that a replay makes up for, so that none is lost to
            // one.
            std::this_thread::sleep_for(1500ms);
            playing.service.command(R"({"cmd":"focus","param":"manual","value":")" + std::string{percent} +
                                    "\"}");
            const std::vector<int> more = focus_positions(playing.service, 10 * std::stoi(percent));
            seen.insert(seen.end(), more.end() - 1, more.end());
        }
        EXPECT_EQ(seen, expected_positions);
        playing.service.command(R"({"cmd":"iso","param":"3200"})");
        ASSERT_NE(playing.service.next_status({"iso=3200,", "iso_set=3200,"}), "");
        playing.finish_background(0s);
        recorded_status = playing.final_status();
        recorded = playing.ring(playing.tally().video.frames);
        EXPECT_TRUE(recorder.finish(playing.tally().stream_bytes));
    }
    ASSERT_GT(recorded.size(), 50u);
    {
        Playing playing;
        auto source = std::make_unique<sim::ReplaySource>();
        ASSERT_TRUE(source->open(path, false, playing.stopwatch.now()));
        playing.play_in_background(std::move(source));
        EXPECT_EQ(focus_positions(playing.service, expected_positions.back()), expected_positions);
        playing.finish_background(3600s);  // to its end
        EXPECT_EQ(playing.ring(recorded.size()), recorded);
        EXPECT_EQ(playing.final_status(), recorded_status);
    }
    std::remove(path.c_str());
}

}  // namespace
