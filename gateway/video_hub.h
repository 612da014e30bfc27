// The live pictures as all viewers get them: fragments of one MP4, kept for as long as the slowest of them
// may still want one. The video's thread puts them in, the server's takes them out.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "formats/fragmented_mp4.h"
#include "gateway/clock.h"

namespace gateway {

using SharedBytes = std::shared_ptr<const std::vector<std::uint8_t>>;

// What a viewer has to know of the stream.
struct StreamFacts {
    std::string codec;  // "avc1.64001F"; empty before the first picture
    formats::PictureSize size{};
    std::uint64_t generation = 0;  // of the header
    std::int64_t origin_ns = 0;    // CLOCK_MONOTONIC of media time 0
};

// Where a viewer stands.
struct Viewer {
    std::uint64_t next = 0;     // sequence of the fragment that it wants; 0: it has just come
    SharedBytes header;         // that it has
    bool waits_for_key = true;  // pictures were passed over
    TimePoint patience{};       // until then it may be behind
    std::uint64_t skipped = 0;  // pictures that it was too slow for
};

class VideoHub {
  public:
    // How far a viewer may be behind before it skips to a key picture, and how long a newcomer, who begins at
    // the newest key picture, may take to come up to that.
    static constexpr std::chrono::milliseconds most_behind{1000};
    static constexpr std::chrono::milliseconds newcomers_time{3000};
    // Of all fragments together. A group of pictures that is larger has no way in but its end.
    static constexpr std::size_t most_bytes = std::size_t{32} << 20;

    // ---- The video's thread ----

    // Takes a picture. True when it made a new header.
    bool add(const formats::AccessUnit& unit);

    // ---- The server's thread ----

    // The bytes that the viewer gets next, a header or a fragment, of which none is skipped but to go on at a
    // key picture; null while there is nothing for it.
    SharedBytes next(Viewer& viewer, TimePoint now);
    bool has_next(const Viewer& viewer) const;
    // Header and newest key picture; empty before the first.
    std::vector<std::uint8_t> snapshot() const;

    // ---- Any thread ----

    StreamFacts facts() const;

  private:
    struct Fragment {
        SharedBytes bytes;
        SharedBytes header;
        TimePoint time;
        bool is_key;
    };

    bool is_held(std::uint64_t sequence) const;
    const Fragment& at(std::uint64_t sequence) const;
    void trim();

    mutable std::mutex lock_;
    formats::FragmentedMp4 mp4_;  // the video's thread alone
    StreamFacts facts_;
    std::deque<Fragment> fragments_;
    std::uint64_t first_ = 1;       // sequence of the oldest fragment
    std::uint64_t newest_key_ = 0;  // 0: none is held
    std::size_t bytes_ = 0;
    SharedBytes header_;
    SharedBytes snapshot_header_;
    SharedBytes snapshot_picture_;
};

}  // namespace gateway
