// Live video as a subcommand reads it: opened, and with words for what is missing.
#pragma once

#include <cstdint>

#include "ardenvue/video.h"
#include "ctl/board_options.h"
#include "ctl/seconds.h"
#include "ctl/video_feed.h"

namespace ctl {

// Opens the board's ring at its newest parameter set. Null, and has then said why.
VideoHandle open_video(const BoardOptions& board);

// Reads frames and hands them on, and says on the standard error stream what is missing. Both must outlive
// it.
class VideoWatcher {
  public:
    VideoWatcher(const BoardOptions& board, ArdenvueVideo* video) : board_{board}, video_{video} {}

    // The next frame; false when none has come for a moment.
    bool next(ArdenvueFrame& frame);

    // Nothing has come for so long that the last picture has all its pieces.
    bool is_silent() const;

    // Why nothing comes; once for each silence. next() does so by itself after 2 s.
    void say_why_silent();

    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::uint64_t missed = 0;

  private:
    const BoardOptions& board_;
    ArdenvueVideo* video_;
    Clock::time_point silent_since_ = Clock::now();
    bool has_complained_ = false;
    std::uint64_t skipped_ = 0;
};

}  // namespace ctl
