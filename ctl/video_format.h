// What live video is written as.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "ardenvue/video.h"

namespace ctl {

// Takes frames as they come and hands on the bytes to be written, as soon as they can be.
class VideoFormat {
  public:
    using Write = std::function<void(std::span<const std::uint8_t>)>;

    virtual ~VideoFormat() = default;
    virtual void add(const ArdenvueFrame& frame) = 0;
    // Nothing more comes, or nothing has come for a while: what waits for its rest is written as it is.
    virtual void flush() {}
};

// "h264", the byte stream as it came; "mp4", a fragment a picture, with a new header where the parameter sets
// change; "ts". Those two have the times of arrival.
std::unique_ptr<VideoFormat> make_video_format(const std::string& name, VideoFormat::Write write);

}  // namespace ctl
