// Live video as GStreamer wants it: whole pictures, one behind the other.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ardenvue/video.h"
#include "formats/access_units.h"
#include "formats/picture_size.h"

namespace gstreamer {

struct Picture {
    std::vector<std::uint8_t> bytes;  // an access unit, with start codes
    bool is_key;
    bool is_discontinuous;                     // pictures are missing before it
    bool follows_restart;                      // of the service
    std::optional<formats::PictureSize> size;  // of a key picture that tells it
    std::int64_t time_ns;                      // of arrival, CLOCK_MONOTONIC
};

// Reads the ring in a thread of its own: a frame arrives when it is read, and a pipeline that holds its
// streaming thread up, as every sink does that waits for the clock, must not make frames arrive later than
// they did.
class FrameSource {
  public:
    // Null, with a reason, when the ring can't be had.
    static std::unique_ptr<FrameSource> open(const char* ring, ArdenvueStart start, std::string& reason);

    ~FrameSource();
    FrameSource(const FrameSource&) = delete;
    FrameSource& operator=(const FrameSource&) = delete;

    // Waits for a picture; none once it is interrupted. One thread.
    std::unique_ptr<Picture> next();

    // Lets next() return, now and until it is taken back. Any thread.
    void interrupt(bool now);

    // Frames that were sent and not handed on. Any thread.
    std::uint64_t missed() const { return missed_; }

  private:
    explicit FrameSource(ArdenvueVideo* video) : video_{video, ardenvue_video_close} {}
    void read();
    void take(const formats::AccessUnit& unit);

    // A pipeline that is further behind than the ring reaches loses what waits for it.
    static constexpr std::size_t most_waiting = 200;

    const std::unique_ptr<ArdenvueVideo, decltype(&ardenvue_video_close)> video_;
    formats::AccessUnits units_{[this](const formats::AccessUnit& unit) { take(unit); }};
    bool is_discontinuous_ = true;
    bool follows_restart_ = false;
    std::atomic<std::uint64_t> missed_{0};
    std::atomic<bool> is_ending_{false};

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::unique_ptr<Picture>> pictures_;
    bool is_interrupted_ = false;

    std::thread reader_;
};

}  // namespace gstreamer
