// The frames that the remote controller's stream is made of. Little-endian.
//
//   0  0x55 0xCC, type, 0x57
//   4  number of payload bytes, 16 bits
//   6  two bytes of no known meaning
//   8  payload
#pragma once

#include <cstddef>
#include <cstdint>

namespace formats {

enum class FrameType : std::uint8_t {
    packets = 'I',
    video = 'J',
};
constexpr std::size_t frame_header_size = 8;

}  // namespace formats
