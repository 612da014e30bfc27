#include "formats/video_tally.h"

#include <algorithm>

#include "platform/little_endian.h"

namespace formats {
namespace {

constexpr std::uint64_t digest_factor = 0x100000001B3;

}  // namespace

void VideoTally::add(std::span<const std::uint8_t> payload) {
    if (payload.empty()) {
        return;
    }
    ++frames;
    bytes += payload.size();
    const auto mix = [this](std::uint64_t word) { digest = (digest ^ word) * digest_factor; };
    mix(payload.size());
    std::size_t at = 0;
    for (; at + 8 <= payload.size(); at += 8) {
        mix(load_le32(&payload[at]) | static_cast<std::uint64_t>(load_le32(&payload[at + 4])) << 32);
    }
    if (at < payload.size()) {
        std::uint8_t last[8]{};
        std::copy(payload.begin() + static_cast<std::ptrdiff_t>(at), payload.end(), last);
        mix(load_le32(last) | static_cast<std::uint64_t>(load_le32(last + 4)) << 32);
    }
}

}  // namespace formats
