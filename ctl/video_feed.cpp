#include "ctl/video_feed.h"

#include <fstream>
#include <utility>

namespace ctl {
namespace {

using namespace std::chrono_literals;

// A size file holds digits and nothing else.
std::string read_number(const std::string& path) {
    std::string text;
    std::ifstream{path} >> text;
    const bool number =
        !text.empty() && text.size() < 6 && text.find_first_not_of("0123456789") == std::string::npos;
    return number ? text : "";
}

}  // namespace

VideoFeed::VideoFeed(std::string ring_name, std::string run_dir)
    : ring_name_{std::move(ring_name)}, run_dir_{std::move(run_dir)} {
    poll();
}

void VideoFeed::poll() {
    if (!video_) {
        if (Clock::now() < next_try_) {
            return;
        }
        next_try_ = Clock::now() + 250ms;
        ArdenvueVideo* opened = nullptr;
        char reason[ARDENVUE_REASON_SIZE];
        if (ardenvue_video_open(&opened, ring_name_.c_str(), ARDENVUE_START_NEXT, reason, sizeof reason) !=
            0) {
            problem_ = reason;
            return;
        }
        video_.reset(opened);
        ardenvue_video_go_on_at_once(opened, true);
    }
    ArdenvueFrame frame{};
    while (ardenvue_video_next(video_.get(), &frame, 0) == 0) {
        first_number_ = first_number_.value_or(frame.number);
        last_number_ = frame.number;
        tally_.add({frame.data, frame.size});
    }
}

ArdenvueVideoTotals VideoFeed::totals() const {
    ArdenvueVideoTotals totals{};
    if (video_) {
        ardenvue_video_totals(video_.get(), &totals);
    }
    return totals;
}

std::string VideoFeed::picture_size() {
    const std::string width = read_number(run_dir_ + "/video_width");
    const std::string height = read_number(run_dir_ + "/video_height");
    if (!width.empty() && !height.empty()) {
        picture_size_ = width + "x" + height;
    }
    return picture_size_;
}

}  // namespace ctl
