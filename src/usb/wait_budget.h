// How long the video may wait for the relay's clients: a limit over time, whoever they are and however the
// waiting is cut up.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>

// At most 2 s of waiting in any 60 s. Times are of a clock that is never set; none may lie before an earlier
// one. No allocation. Not for several threads at once.
class WaitBudget {
  public:
    using Clock = std::chrono::steady_clock;
    using Duration = std::chrono::microseconds;
    static constexpr Duration limit = std::chrono::seconds{2};
    static constexpr std::int64_t window_seconds = 60;

    // What may be waited now, 0 or more.
    Duration left(Clock::time_point now) const;

    // Counts a wait that ends now.
    void spend(Clock::time_point now, Duration waited);

    // Whether another client is to be let in: with less than half of the limit it would soon be dropped too.
    bool lets_in(Clock::time_point now) const { return left(now) >= limit / 2; }

  private:
    struct Second {
        std::int64_t second = -window_seconds - 1;
        Duration waited{0};
    };
    // One more than the window: a wait counts until it is at least 60 s old, whatever part of its second it
    // ended in.
    std::array<Second, window_seconds + 1> seconds_{};
};
