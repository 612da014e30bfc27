#include "gstreamer/frame_source.h"

#include <algorithm>
#include <array>
#include <utility>

namespace gstreamer {

std::unique_ptr<FrameSource> FrameSource::open(const char* ring, ArdenvueStart start, std::string& reason) {
    ArdenvueVideo* video = nullptr;
    std::array<char, ARDENVUE_REASON_SIZE> text{};
    if (ardenvue_video_open(&video, ring, start, text.data(), text.size()) != 0) {
        reason = text.data();
        return nullptr;
    }
    return std::unique_ptr<FrameSource>{new FrameSource{video}};
}

FrameSource::Outcome FrameSource::next(Picture& picture) {
    constexpr int wait_ms = 20;
    constexpr int silent_waits = 5;  // then nothing follows that belongs to the last picture
    for (int waits = 0; pictures_.empty();) {
        if (is_interrupted_) {
            return Outcome::interrupted;
        }
        ArdenvueFrame frame{};
        if (ardenvue_video_next(video_.get(), &frame, wait_ms) != 0) {
            if (++waits == silent_waits) {
                units_.flush();
            }
            continue;
        }
        waits = 0;
        if (frame.missed_before > 0 || frame.follows_restart) {
            units_.drop();
            is_discontinuous_ = true;
            missed_ += frame.missed_before;
        }
        units_.add({frame.data, frame.size}, frame.time_ns);
        if (frame.follows_restart) {
            return Outcome::restarted;
        }
    }
    picture = std::move(pictures_.front());
    pictures_.pop_front();
    return Outcome::picture;
}

void FrameSource::take(const formats::AccessUnit& unit) {
    constexpr std::array<std::uint8_t, 4> start_code{0, 0, 0, 1};
    Picture picture{{}, unit.is_key, std::exchange(is_discontinuous_, false), std::nullopt, unit.time_ns};
    for (const formats::NalUnit each : unit.units) {
        picture.bytes.insert(picture.bytes.end(), start_code.begin(), start_code.end());
        picture.bytes.insert(picture.bytes.end(), each.begin(), each.end());
        if (formats::type_of(each) == formats::NalType::sequence_parameters) {
            picture.size = formats::picture_size(each);
        }
    }
    pictures_.push_back(std::move(picture));
}

}  // namespace gstreamer
