#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ardenvue/video.h"
#include "ctl/seconds.h"
#include "formats/video_tally.h"

namespace ctl {

struct VideoClose {
    void operator()(ArdenvueVideo* video) const { ardenvue_video_close(video); }
};
using VideoHandle = std::unique_ptr<ArdenvueVideo, VideoClose>;

// The ring as a monitor sees it: opened when it appears, every frame read and counted.
class VideoFeed {
  public:
    VideoFeed(std::string ring_name, std::string run_dir);

    // Reads what is new. Call it every few ms.
    void poll();

    bool open() const { return video_ != nullptr; }
    const std::string& problem() const { return problem_; }
    ArdenvueVideoTotals totals() const;
    std::optional<std::uint16_t> first_number() const { return first_number_; }
    std::optional<std::uint16_t> last_number() const { return last_number_; }

    // "1920x1080" from the picture size files, empty before the first picture. Files that are gone leave the
    // size that was read last.
    std::string picture_size();

    // Of all frames read, as the simulator reckons it for what it sent.
    std::uint64_t digest() const { return tally_.digest; }

  private:
    std::string ring_name_;
    std::string run_dir_;
    VideoHandle video_;
    std::string problem_;
    Clock::time_point next_try_{};
    std::optional<std::uint16_t> first_number_;
    std::optional<std::uint16_t> last_number_;
    std::string picture_size_;
    formats::VideoTally tally_;
};

}  // namespace ctl
