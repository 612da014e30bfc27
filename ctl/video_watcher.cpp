#include "ctl/video_watcher.h"

#include <cstdio>
#include <string>

#include "ctl/tcp_port.h"
#include "formats/access_units.h"

namespace ctl {
namespace {

constexpr int wait_ms = 100;  // between looks at what may end it
constexpr std::chrono::seconds patience{2};

// What keeps frames away, as far as it can be told from here.
std::string why_silent(const BoardOptions& board, bool frames_were_skipped) {
    if (frames_were_skipped) {
        return "frames come, but no parameter set that a decoder could begin with";
    }
    return is_tcp_port_listening(board.relay_port)
               ? "the service runs, but the remote controller sends no video"
               : "no service is running that takes the video in (nothing listens on TCP port " +
                     std::to_string(board.relay_port) + ")";
}

}  // namespace

VideoHandle open_video(const BoardOptions& board) {
    ArdenvueVideo* opened = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    if (ardenvue_video_open(&opened, board.ring_name.c_str(), ARDENVUE_START_KEY, reason, sizeof reason) !=
        0) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", reason);
    }
    return VideoHandle{opened};
}

bool VideoWatcher::next(ArdenvueFrame& frame) {
    if (ardenvue_video_next(video_, &frame, wait_ms) != 0) {
        if (Clock::now() - silent_since_ >= patience) {
            say_why_silent();
        }
        return false;
    }
    if (frame.missed_before > 0) {
        std::fprintf(stderr, "ardenvue-ctl: missed %u frames before frame %u\n",
                     unsigned{frame.missed_before}, unsigned{frame.number});
        missed += frame.missed_before;
    }
    frames += 1;
    bytes += frame.size;
    silent_since_ = Clock::now();
    has_complained_ = false;
    return true;
}

bool VideoWatcher::is_silent() const {
    return Clock::now() - silent_since_ >= std::chrono::milliseconds{formats::AccessUnits::silence_ms};
}

void VideoWatcher::say_why_silent() {
    if (has_complained_) {
        return;
    }
    has_complained_ = true;
    ArdenvueVideoTotals totals{};
    ardenvue_video_totals(video_, &totals);
    const double silence = in_seconds(Clock::now() - silent_since_);
    std::fprintf(stderr, "ardenvue-ctl: no frame for %g s: %s\n", silence < 2 ? silence : 2.0,
                 why_silent(board_, totals.skipped > skipped_).c_str());
    skipped_ = totals.skipped;
}

}  // namespace ctl
