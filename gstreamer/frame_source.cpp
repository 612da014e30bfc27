#include "gstreamer/frame_source.h"

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
    std::unique_ptr<FrameSource> source{new FrameSource{video}};
    source->reader_ = std::thread{&FrameSource::read, source.get()};
    return source;
}

FrameSource::~FrameSource() {
    is_ending_ = true;
    if (reader_.joinable()) {
        reader_.join();
    }
}

void FrameSource::read() {
    constexpr int wait_ms = 20;
    constexpr int silent_waits = formats::AccessUnits::silence_ms / wait_ms;
    for (int waits = 0; !is_ending_;) {
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
        follows_restart_ = follows_restart_ || frame.follows_restart;
        units_.add({frame.data, frame.size}, frame.time_ns);
    }
}

void FrameSource::take(const formats::AccessUnit& unit) {
    constexpr std::array<std::uint8_t, 4> start_code{0, 0, 0, 1};
    const std::lock_guard lock{mutex_};
    if (pictures_.size() >= most_waiting) {
        missed_ += pictures_.size();
        pictures_.clear();
        is_discontinuous_ = true;
    }
    if (is_discontinuous_ && !unit.is_key && missed_ > 0) {
        missed_ += 1;
        return;  // until a decoder can go on
    }
    auto picture = std::make_unique<Picture>();
    for (const formats::NalUnit each : unit.units) {
        picture->bytes.insert(picture->bytes.end(), start_code.begin(), start_code.end());
        picture->bytes.insert(picture->bytes.end(), each.begin(), each.end());
        if (formats::type_of(each) == formats::NalType::sequence_parameters) {
            picture->size = formats::picture_size(each);
        }
    }
    picture->is_key = unit.is_key;
    picture->is_discontinuous = std::exchange(is_discontinuous_, false);
    picture->follows_restart = std::exchange(follows_restart_, false);
    picture->time_ns = unit.time_ns;
    pictures_.push_back(std::move(picture));
    changed_.notify_all();
}

std::unique_ptr<Picture> FrameSource::next() {
    std::unique_lock lock{mutex_};
    changed_.wait(lock, [this] { return is_interrupted_ || !pictures_.empty(); });
    if (is_interrupted_) {
        return nullptr;
    }
    std::unique_ptr<Picture> picture = std::move(pictures_.front());
    pictures_.pop_front();
    return picture;
}

void FrameSource::interrupt(bool now) {
    const std::lock_guard lock{mutex_};
    is_interrupted_ = now;
    changed_.notify_all();
}

}  // namespace gstreamer
