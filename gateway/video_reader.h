// The thread that reads the frame ring and makes pictures of its frames.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "ardenvue/video.h"
#include "gateway/video_hub.h"

namespace gateway {

class VideoReader {
  public:
    // Called by the reader's thread at each frame; whether the stream has a new
    // header.
    using OnFrame = std::function<void(bool has_new_header)>;

    // All three must outlive it. A ring that isn't there, or that this user may not read, is tried again each
    // second.
    VideoReader(std::string ring_name, VideoHub& hub, OnFrame on_frame);
    ~VideoReader();
    VideoReader(const VideoReader&) = delete;
    VideoReader& operator=(const VideoReader&) = delete;

    // ---- Any thread ----

    struct Totals {
        std::uint64_t frames;
        std::uint64_t bytes;
        std::uint64_t missed;
        std::int64_t newest_ns;  // time of arrival of the newest frame; 0: none yet
    };
    Totals totals() const { return {frames_, bytes_, missed_, newest_ns_}; }
    // Counts on while the thread runs.
    std::uint64_t passes() const { return passes_; }

  private:
    void run();
    void read(ArdenvueVideo* video);

    const std::string ring_name_;
    VideoHub& hub_;
    const OnFrame on_frame_;
    std::atomic<bool> stops_{false};
    std::atomic<std::uint64_t> frames_{0};
    std::atomic<std::uint64_t> bytes_{0};
    std::atomic<std::uint64_t> missed_{0};
    std::atomic<std::int64_t> newest_ns_{0};
    std::atomic<std::uint64_t> passes_{0};
    std::thread thread_;
};

}  // namespace gateway
