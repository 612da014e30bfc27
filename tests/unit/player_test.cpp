#include "sim/remote/player.h"

#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using sim::AccessUnit;
using sim::Bytes;
using sim::Camera;
using sim::LiveSource;
using sim::Packet;
using sim::ReplaySource;
using sim::Time;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;
using testing::Pair;
using testing::UnorderedElementsAre;

const std::vector<AccessUnit> two_pictures{{{{1, 1, 1}, {2}}}, {{{3, 3}}}};

// What a stream holds, read back.
struct Contents {
    std::vector<Bytes> video;
    std::map<std::string, int> pushes;
    formats::StreamReader reader{[this](formats::FrameType type, std::span<const std::uint8_t> payload) {
        if (type == formats::FrameType::video) {
            video.emplace_back(payload.begin(), payload.end());
            return;
        }
        while (!payload.empty()) {
            Packet packet;
            std::string problem;
            const std::size_t size = sim::decode_packet(payload, packet, problem);
            pushes[sim::push_name(packet)] += size > 0 ? 1 : 0;
            payload = payload.subspan(size > 0 ? size : 1);
        }
    }};
};

// Takes what is due until the given time, each piece exactly when it is due.
void play_by_the_clock(sim::Source& source, Time until, Contents& contents) {
    for (auto due = source.due(); due && *due < until; due = source.due()) {
        contents.reader.add(source.take(*due));
    }
}

TEST(LiveStream, PushesAtTheRatesOfACamera) {
    Camera camera;
    LiveSource source{two_pictures, camera, {25, false, {}}, 100s};
    Contents contents;
    play_by_the_clock(source, 110s, contents);
    EXPECT_THAT(contents.pushes, UnorderedElementsAre(Pair("gimbal attitude", 200), Pair("camera status", 50),
                                                      Pair("focus", 50), Pair("camera parameters", 50),
                                                      Pair("battery", 10), Pair("power", 10)));
    EXPECT_EQ(contents.video.size(), 250u / 2 * 3);
    EXPECT_THAT(std::vector(contents.video.begin(), contents.video.begin() + 4),
                ElementsAre(Bytes{1, 1, 1}, Bytes{2}, Bytes{3, 3}, Bytes{1, 1, 1}));

    camera.receive(sim::encode_packet({2, 1, 0, 0x40, 2, 0x60, {1}}), 110s);
    play_by_the_clock(source, 112s, contents);
    EXPECT_EQ(contents.pushes["histogram"], 10);
}

TEST(LiveStream, GoesOnAtItsPaceAfterAPause) {
    Camera camera;
    LiveSource source{two_pictures, camera, {25, false, {}}, 0s};
    Contents before;
    play_by_the_clock(source, 1s, before);
    source.take(20s);  // the pushes that were due
    Contents after;
    while (*source.due() < 20s) {
        after.reader.add(source.take(20s));
    }
    EXPECT_THAT(after.video, ElementsAre(Bytes{3, 3})) << "made up for the pause";
    play_by_the_clock(source, 21s, after);
    EXPECT_THAT(after.video.size(), AllOf(Ge(36u), Le(39u)));
    EXPECT_THAT(after.pushes["gimbal attitude"], AllOf(Ge(19), Le(21)));
}

TEST(LiveStream, FlatOutLeavesThePushesTheirRates) {
    Camera camera;
    LiveSource source{two_pictures, camera, {25, true, {}}, 0s};
    Contents contents;
    for (Time now = 0s; now < 1s; now += 100us) {
        contents.reader.add(source.take(now));
    }
    EXPECT_EQ(contents.pushes["gimbal attitude"], 20);
    EXPECT_GT(contents.video.size(), 9'900u);
}

// Faults may cost the packet that they hit, and nothing else.
TEST(LiveStream, FaultsLeaveTheVideoWhole) {
    Camera camera;
    LiveSource clean{two_pictures, camera, {25, false, {}}, 0s};
    LiveSource faulty{two_pictures, camera, {25, false, {sim::max_garbage, true}}, 0s};
    Contents expected;
    Contents received;
    play_by_the_clock(clean, 10s, expected);
    play_by_the_clock(faulty, 10s, received);
    EXPECT_EQ(received.video, expected.video);
    const auto total = [](const Contents& contents) {
        std::uint64_t sum = 0;
        for (const auto& [name, count] : contents.pushes) {
            sum += static_cast<std::uint64_t>(count);
        }
        return sum;
    };
    EXPECT_GT(faulty.corrupted_packets(), 100u);
    EXPECT_EQ(total(received) + faulty.corrupted_packets(), total(expected));
}

TEST(StreamReader, FindsTheSameHoweverTheStreamIsCut) {
    Bytes stream{0x55, 0xCC, 0x4A, 0x00, 0x55};  // nearly a header
    for (const Bytes& payload : {Bytes(300, 7), Bytes{}, Bytes{0x55, 0xCC, 0x4A, 0x57}, Bytes(9, 1)}) {
        const Bytes frame = sim::encode_frame(formats::FrameType::video, payload);
        stream.insert(stream.end(), frame.begin(), frame.end());
        stream.push_back(0x55);
    }
    for (const std::size_t cut : {std::size_t{1}, std::size_t{7}, std::size_t{512}}) {
        formats::VideoTally tally;
        std::size_t frames = 0;
        formats::StreamReader reader{[&](formats::FrameType, std::span<const std::uint8_t> payload) {
            ++frames;
            tally.add(payload);
        }};
        for (std::size_t at = 0; at < stream.size(); at += cut) {
            reader.add(std::span{stream}.subspan(at, std::min(cut, stream.size() - at)));
        }
        EXPECT_EQ(frames, 4u);
        EXPECT_EQ(tally.frames, 3u);
        EXPECT_EQ(tally.bytes, 313u);
    }
}

TEST(Replay, KeepsTheTimesAndBeginsWithAFrame) {
    const std::string path = testing::TempDir() + "replay." + std::to_string(getpid());
    const Bytes frame = sim::encode_frame(formats::FrameType::video, Bytes{1, 2, 3});
    formats::CaptureWriter writer;
    ASSERT_TRUE(writer.open(path));
    writer.write(Time{500'000}, formats::Direction::from_remote, Bytes{9, 9, 0x55, 0xCC});
    writer.write(Time{600'000}, formats::Direction::to_remote, frame);
    // The first frame's header is cut in two.
    writer.write(Time{700'000}, formats::Direction::from_remote, std::span{frame}.subspan(2));
    writer.write(Time{900'000}, formats::Direction::from_remote, frame);
    writer.flush();
    ReplaySource source;
    ASSERT_TRUE(source.open(path, false, 10s));
    EXPECT_EQ(source.due(), 10s);
    const auto first = source.take(10s);
    EXPECT_EQ(Bytes(first.begin(), first.end()), frame);
    EXPECT_EQ(source.due(), 10s + 200ms);
    source.take(10s + 200ms);
    EXPECT_EQ(source.due(), std::nullopt);
    EXPECT_FALSE(source.damaged());
    std::ofstream(path) << "no frame in here";
    EXPECT_FALSE(ReplaySource{}.open(path, false, 0s));
    std::remove(path.c_str());
}

// A device that takes all there is, and writes the packets it was given.
class FakeCable final : public sim::Cable {
  public:
    std::deque<Bytes> to_send;
    Contents taken;
    std::size_t vanish_after = SIZE_MAX;

    bool wait_for_device(sim::Milliseconds) override { return true; }
    bool plug(sim::Speed) override { return true; }
    void pull() override {}
    sim::ControlResult control(const sim::SetupPacket&, sim::Milliseconds) override { return {}; }
    bool bulk_out(std::span<const std::uint8_t> bytes) override {
        if (vanish_after == 0) {
            return false;
        }
        --vanish_after;
        taken.reader.add(bytes);
        return true;
    }
    std::optional<Bytes> bulk_in(sim::Milliseconds timeout) override {
        if (to_send.empty()) {
            std::this_thread::sleep_for(timeout);
            return std::nullopt;
        }
        const Bytes packet = to_send.front();
        to_send.pop_front();
        return packet;
    }
};

TEST(Player, PlaysListensAndKeepsAccount) {
    FakeCable cable;
    cable.to_send = {sim::encode_packet({2, 1, 5, 0x40, 2, 0x2A, {5}}), {0x55, 1, 2}};
    Camera camera;
    sim::PacketLog log;
    const std::string path = testing::TempDir() + "packets." + std::to_string(getpid());
    ASSERT_TRUE(log.open(path));
    const sim::Stopwatch stopwatch;
    std::mutex mutex;
    std::condition_variable heard;
    std::vector<std::string> meanings;
    {
        sim::Player player{cable, camera, log, stopwatch, [&](const std::string& meaning) {
                               const std::lock_guard lock{mutex};
                               meanings.push_back(meaning);
                               heard.notify_one();
                           }};
        std::unique_lock lock{mutex};
        ASSERT_TRUE(heard.wait_for(lock, 60s, [&] { return meanings.size() == 2; }));
        lock.unlock();
        const std::atomic<bool> stop{false};
        LiveSource source{two_pictures, camera, {1000, false, {}}, stopwatch.now()};
        EXPECT_EQ(player.play(source, stopwatch.now() + 50ms, stop), sim::PlayEnd::stopped);
        EXPECT_EQ(player.tally().video.frames, cable.taken.video.size());
        EXPECT_GT(player.tally().packets, 0u);
        EXPECT_EQ(player.transfers_received(), 2u);
        cable.vanish_after = 0;
        EXPECT_EQ(player.play(source, 3600s, stop), sim::PlayEnd::device_gone);
        EXPECT_FALSE(player.send_closing_frame());
    }
    EXPECT_EQ(meanings[0], "iso 400");
    EXPECT_THAT(camera.complaints(), ElementsAre(testing::HasSubstr("shorter than any packet: 55 01 02")));
    std::ifstream file(path);
    const std::string lines{std::istreambuf_iterator<char>(file), {}};
    EXPECT_THAT(lines, testing::HasSubstr("from device 55 0E 04 66 02 01 05 00 40 02 2A 05"));
    EXPECT_THAT(lines, testing::HasSubstr("| iso 400\n"));
    EXPECT_THAT(lines, testing::HasSubstr("| gimbal attitude\n"));
    std::remove(path.c_str());
}

}  // namespace
