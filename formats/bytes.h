#pragma once

#include <cstdint>
#include <vector>

namespace formats {

using Bytes = std::vector<std::uint8_t>;

}  // namespace formats
