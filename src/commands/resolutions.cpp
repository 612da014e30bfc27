#include "commands/resolutions.h"

#include "state/camera_codes.h"

namespace {

using camera_codes::frame_rates;
using camera_codes::FrameRate;
using camera_codes::video_sizes;
using camera_codes::VideoSize;

// All sizes at up to 60 frames a second; full HD alone goes beyond.
constexpr bool is_accepted(const VideoSize& size, const FrameRate& rate) {
    return rate.frames_per_second <= 60 || size.width == 1920;
}

constexpr int count_accepted() {
    int count = 0;
    for (const VideoSize& size : video_sizes) {
        for (const FrameRate& rate : frame_rates) {
            count += is_accepted(size, rate) ? 1 : 0;
        }
    }
    return count;
}
static_assert(count_accepted() == 38);

}  // namespace

std::optional<Resolution> find_resolution(std::string_view text) {
    const std::size_t at = text.find('@');
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const VideoSize* size = camera_codes::find(video_sizes, &VideoSize::text, text.substr(0, at));
    const FrameRate* rate = camera_codes::find(frame_rates, &FrameRate::text, text.substr(at + 1));
    if (size == nullptr || rate == nullptr || !is_accepted(*size, *rate)) {
        return std::nullopt;
    }
    return Resolution{size->width, size->height, rate->frames_per_second};
}
