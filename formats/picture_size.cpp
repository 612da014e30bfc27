#include "formats/picture_size.h"

#include <vector>

#include "include/h264parse.h"

namespace formats {
namespace {

constexpr std::int32_t largest = 16'384;  // pixels; H.264's highest level stays below

// Without emulation prevention bytes (H.264, 7.4.1.1), from behind the NAL unit's header on.
std::vector<std::uint8_t> payload_of(NalUnit unit) {
    std::vector<std::uint8_t> payload;
    for (std::size_t i = 1; i < unit.size(); ++i) {
        const bool prevention = unit[i] == 3 && i > 2 && unit[i - 1] == 0 && unit[i - 2] == 0;
        if (!prevention) {
            payload.push_back(unit[i]);
        }
    }
    return payload;
}

}  // namespace

std::optional<PictureSize> picture_size(NalUnit sps) {
    const std::vector<std::uint8_t> payload = payload_of(sps);
    PictureSize size{};
    if (!H264Parse{}.ParseSps(payload.data(), static_cast<std::int32_t>(payload.size()), size.width,
                              size.height) ||
        size.width <= 0 || size.height <= 0 || size.width > largest || size.height > largest) {
        return std::nullopt;
    }
    return size;
}

}  // namespace formats
