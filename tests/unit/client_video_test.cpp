// The library's reader of live video, on a ring that the test writes as the service does.
#include <array>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "ardenvue.h"
#include "ardenvue/video.h"
#include "tests/unit/written_ring.h"

namespace {

using ardenvue::FrameRing;
using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::HasSubstr;

// ITU-T H.264, 7.3.1: start code, then the byte with nal_unit_type; 6 SEI, 7 parameter set, 1 and 5 slices.
const Bytes key_picture = {0, 0, 0, 1, 0x06, 9, 0, 0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x65, 3};
const Bytes key_from_parameter_set(key_picture.begin() + 6, key_picture.end());
const Bytes picture = {0, 0, 0, 1, 0x61, 7, 7, 7};

struct Ring : WrittenRing {
    // "K" for a key picture, "." for another one.
    void write_all(const std::string& pictures) {
        for (const char kind : pictures) {
            write(kind == 'K' ? key_picture : picture);
        }
    }
};

class Video {
  public:
    Video(const Ring& ring, ArdenvueStart start) {
        EXPECT_EQ(ardenvue_video_open(&video_, ring.name.c_str(), start, nullptr, 0), 0);
    }
    ~Video() { ardenvue_video_close(video_); }
    Video(const Video&) = delete;
    Video& operator=(const Video&) = delete;

    // The numbers of the frames that are there.
    std::vector<int> numbers() {
        std::vector<int> numbers;
        while (ardenvue_video_next(video_, &frame, 0) == 0) {
            numbers.push_back(frame.number);
        }
        return numbers;
    }
    bool take() { return ardenvue_video_next(video_, &frame, 0) == 0; }
    Bytes bytes() const { return {frame.data, frame.data + frame.size}; }
    ArdenvueVideoTotals totals() const {
        ArdenvueVideoTotals totals{};
        ardenvue_video_totals(video_, &totals);
        return totals;
    }
    ArdenvueVideo* get() { return video_; }

    ArdenvueFrame frame{};

  private:
    ArdenvueVideo* video_ = nullptr;
};

TEST(ClientVideo, BeginsWhereItIsAskedTo) {
    struct Case {
        const char* in_the_ring;
        ArdenvueStart start;
        const char* later;
        std::vector<int> numbers;
    };
    const Case cases[] = {
        {"K..K..", ARDENVUE_START_KEY, "..", {3, 4, 5, 6, 7}},
        {"......", ARDENVUE_START_KEY, "..K.", {8, 9}},
        {"", ARDENVUE_START_KEY, ".K.", {1, 2}},
        {"K..K..", ARDENVUE_START_NEWEST, "..", {5, 6, 7}},
        {"K..K..", ARDENVUE_START_OLDEST, ".", {0, 1, 2, 3, 4, 5, 6}},
        {"K..K..", ARDENVUE_START_NEXT, "..", {6, 7}},
    };
    for (const Case& c : cases) {
        Ring ring;
        ring.write_all(c.in_the_ring);
        Video video{ring, c.start};
        ring.write_all(c.later);
        EXPECT_EQ(video.numbers(), c.numbers) << c.in_the_ring << c.start;
        EXPECT_EQ(video.totals().missed, 0U);
    }
    // As far back as the writer won't be in the next moment; what it has cleared is not of this run.
    Ring lapped;
    lapped.write_all("K" + std::string(499, '.'));
    Video oldest{lapped, ARDENVUE_START_OLDEST};
    EXPECT_EQ(oldest.numbers().front(), 310);
    Video key{lapped, ARDENVUE_START_KEY};
    EXPECT_FALSE(key.take());
}

TEST(ClientVideo, HandsOutFramesThatADecoderCanBeginWith) {
    Ring ring;
    ring.write_all("K.");
    Video video{ring, ARDENVUE_START_KEY};
    ASSERT_TRUE(video.take());
    EXPECT_EQ(video.bytes(), key_from_parameter_set);
    EXPECT_TRUE(video.frame.is_key);
    const ArdenvueFrame first = video.frame;
    ASSERT_TRUE(video.take());
    EXPECT_EQ(video.bytes(), picture);
    EXPECT_FALSE(video.frame.is_key);
    EXPECT_GT(video.frame.time_ns, first.time_ns);
    EXPECT_GT(video.frame.wall_ns, first.wall_ns);
    ring.write(key_picture);
    ASSERT_TRUE(video.take());
    EXPECT_EQ(video.bytes(), key_picture) << "nothing was lost: the stream is handed on as it is";
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    EXPECT_NEAR(static_cast<double>(video.frame.time_ns), static_cast<double>(now.tv_sec) * 1e9, 60e9);
    clock_gettime(CLOCK_REALTIME, &now);
    EXPECT_NEAR(static_cast<double>(video.frame.wall_ns), static_cast<double>(now.tv_sec) * 1e9, 60e9);
}

TEST(ClientVideo, GoesOnBehindAGapWhereADecoderCan) {
    for (const bool at_once : {false, true}) {
        Ring ring;
        ring.write_all("K.");
        Video video{ring, ARDENVUE_START_KEY};
        ardenvue_video_go_on_at_once(video.get(), at_once);
        EXPECT_THAT(video.numbers(), ElementsAre(0, 1));
        ring.write_all(std::string(300, '.') + "K..");  // it goes on a hundred frames behind the writer
        ASSERT_TRUE(video.take());
        EXPECT_EQ(video.frame.missed_before, static_cast<unsigned>(video.frame.number) - 2);
        EXPECT_EQ(video.frame.number, at_once ? 205 : 302);
        EXPECT_EQ(video.bytes(), at_once ? picture : key_from_parameter_set);
        EXPECT_EQ(video.totals().missed, 203U);
        EXPECT_EQ(video.totals().skipped, at_once ? 0U : 97U);
        EXPECT_EQ(video.numbers().back(), 304);
    }
}

TEST(ClientVideo, TellsOfARestart) {
    Ring ring;
    ring.write_all("K...");
    Video video{ring, ARDENVUE_START_KEY};
    video.numbers();
    ring.restart();
    ring.write_all(".K.");
    ASSERT_TRUE(video.take());
    EXPECT_EQ(video.frame.number, 1);
    EXPECT_TRUE(video.frame.follows_restart);
    EXPECT_EQ(video.totals().restarts, 1U);
    ASSERT_TRUE(video.take());
    EXPECT_FALSE(video.frame.follows_restart);
}

// Both happen to a ring at the hands of others; reading a mapping past the object's end would be a bus error.
TEST(ClientVideo, GivesARingUpThatIsNotWholeAndTakesItUpAgain) {
    for (const bool is_unlinked : {false, true}) {
        auto ring = std::make_unique<Ring>();
        ring->write_all("K.");
        Video video{*ring, ARDENVUE_START_KEY};
        EXPECT_THAT(video.numbers(), ElementsAre(0, 1));
        if (is_unlinked) {
            ring.reset();
        } else {
            ring->resize(4096);
        }
        EXPECT_EQ(ardenvue_video_next(video.get(), &video.frame, 10), ARDENVUE_ERROR_TIMEOUT);
        if (is_unlinked) {
            ring = std::make_unique<Ring>();
        } else {
            ring->resize(sizeof(FrameRing));
            ring->restart();
        }
        ring->write_all("K");
        ASSERT_EQ(ardenvue_video_next(video.get(), &video.frame, 30'000), 0);
        EXPECT_TRUE(video.frame.follows_restart);
    }
}

TEST(ClientVideo, SaysWhyThereIsNone) {
    ArdenvueVideo* video = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    EXPECT_EQ(
        ardenvue_video_open(&video, "/ardenvue-video-test-none", ARDENVUE_START_KEY, reason, sizeof reason),
        ARDENVUE_ERROR_SYSTEM);
    EXPECT_THAT(reason, HasSubstr("has not run yet"));
    Ring ring;
    ring.resize(100);
    EXPECT_EQ(ardenvue_video_open(&video, ring.name.c_str(), ARDENVUE_START_KEY, reason, sizeof reason),
              ARDENVUE_ERROR_DATA);
    EXPECT_THAT(reason, HasSubstr("100 bytes instead of"));
    EXPECT_EQ(video, nullptr);
    ardenvue_video_close(video);
}

TEST(ClientVideo, WaitsForAFrame) {
    Ring ring;
    Video video{ring, ARDENVUE_START_NEXT};
    std::thread writer{[&] {
        std::this_thread::sleep_for(std::chrono::milliseconds{20});
        ring.write(picture);
    }};
    EXPECT_EQ(ardenvue_video_next(video.get(), &video.frame, -1), 0);
    writer.join();
    EXPECT_EQ(video.bytes(), picture);
}

}  // namespace
