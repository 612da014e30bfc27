// A reply without an end: its bytes are asked for as the client takes them.
#pragma once

#include <memory>
#include <string>

#include "gateway/station.h"
#include "gateway/video_hub.h"

namespace gateway {

// All calls come from the server's thread.
class Stream {
  public:
    virtual ~Stream() = default;
    // At most size bytes; 0: nothing for now.
    virtual std::size_t read(char* buffer, std::size_t size) = 0;
    virtual bool has_more() const = 0;
};

class VideoStream : public Stream {
  public:
    // Both must outlive it; skipped counts the pictures that this client was too slow for.
    VideoStream(VideoHub& hub, std::uint64_t& skipped) : hub_{hub}, skipped_{skipped} {}
    std::size_t read(char* buffer, std::size_t size) override;
    bool has_more() const override { return part_ != nullptr || hub_.has_next(viewer_); }

  private:
    VideoHub& hub_;
    std::uint64_t& skipped_;
    Viewer viewer_;
    SharedBytes part_;  // what is being sent
    std::size_t sent_ = 0;
};

class EventStream : public Stream {
  public:
    EventStream(Station& station, const Listener& listener) : station_{station}, listener_{listener} {}
    std::size_t read(char* buffer, std::size_t size) override;
    bool has_more() const override { return sent_ < text_.size() || station_.has_news(listener_); }

  private:
    Station& station_;
    Listener listener_;
    std::string text_;
    std::size_t sent_ = 0;
};

}  // namespace gateway
