#pragma once

#include <cstdint>
#include <optional>

#include "formats/nal_units.h"

namespace formats {

struct PictureSize {
    std::int32_t width;  // pixels
    std::int32_t height;
    bool operator==(const PictureSize&) const = default;
};

// The size that a sequence parameter set tells; none when it tells no size that a decoder could show.
std::optional<PictureSize> picture_size(NalUnit sps);

}  // namespace formats
