// Times of a recording, as its file counts them: from the first picture on, each later than the one before.
#pragma once

#include <algorithm>
#include <cstdint>

namespace formats {

class MediaTime {
  public:
    static constexpr std::int64_t timescale = 90'000;  // units a second

    // The time of the next picture, which came then, in units.
    std::int64_t next(std::int64_t time_ns) {
        constexpr std::int64_t second = 1'000'000'000;
        first_ns_ = last_ < 0 ? time_ns : first_ns_;
        const std::int64_t since = std::max<std::int64_t>(time_ns - first_ns_, 0);
        last_ = std::max(since / second * timescale + since % second * timescale / second, last_ + 1);
        return last_;
    }

    // That of the picture before; -1 before the first.
    std::int64_t last() const { return last_; }

  private:
    std::int64_t first_ns_ = 0;
    std::int64_t last_ = -1;
};

}  // namespace formats
