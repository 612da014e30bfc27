// Live video as GStreamer wants it: whole pictures, one behind the other.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ardenvue/video.h"
#include "formats/access_units.h"
#include "formats/picture_size.h"

namespace gstreamer {

struct Picture {
    std::vector<std::uint8_t> bytes;  // an access unit, with start codes
    bool is_key;
    bool is_discontinuous;                     // pictures are missing before it
    std::optional<formats::PictureSize> size;  // of a key picture that tells it
    std::int64_t time_ns;                      // of arrival, CLOCK_MONOTONIC
};

// One streaming thread calls next(); interrupt() may come from any other.
class FrameSource {
  public:
    // Null, with a reason, when the ring can't be had.
    static std::unique_ptr<FrameSource> open(const char* ring, ArdenvueStart start, std::string& reason);

    enum class Outcome { picture, interrupted, restarted };
    // Waits for a picture. restarted, once for each restart of the service: the next call goes on behind it.
    Outcome next(Picture& picture);

    // Lets next() return within some hundredths of a second, now and until it is taken back.
    void interrupt(bool now) { is_interrupted_ = now; }

    std::uint64_t missed() const { return missed_; }

  private:
    explicit FrameSource(ArdenvueVideo* video) : video_{video, ardenvue_video_close} {}
    void take(const formats::AccessUnit& unit);

    std::unique_ptr<ArdenvueVideo, decltype(&ardenvue_video_close)> video_;
    std::atomic<bool> is_interrupted_{false};
    std::atomic<std::uint64_t> missed_{0};
    formats::AccessUnits units_{[this](const formats::AccessUnit& unit) { take(unit); }};
    std::deque<Picture> pictures_;
    bool is_discontinuous_ = true;
};

}  // namespace gstreamer
