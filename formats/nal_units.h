// NAL units of an H.264 byte stream (ITU-T H.264, annex B), as far as one must know them to cut it.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace formats {

// nal_unit_type, table 7-1.
enum class NalType : std::uint8_t {
    slice = 1,
    idr_slice = 5,
    sei = 6,
    sequence_parameters = 7,
    picture_parameters = 8,
    delimiter = 9,
    prefix_nal = 14,
    reserved_18 = 18,
};

// A NAL unit from its header byte on, without start code; it holds one byte at least.
using NalUnit = std::span<const std::uint8_t>;

inline NalType type_of(NalUnit unit) {
    return static_cast<NalType>(unit[0] & 0x1F);
}

inline bool is_slice(NalUnit unit) {
    return type_of(unit) == NalType::slice || type_of(unit) == NalType::idr_slice;
}

// The first slice of a picture: first_mb_in_slice is 0, which Exp-Golomb writes as a single 1 bit.
inline bool begins_picture(NalUnit unit) {
    return is_slice(unit) && unit.size() > 1 && (unit[1] & 0x80) != 0;
}

// Types that, behind a slice, belong to the next picture (7.4.1.2.3).
inline bool precedes_slices(NalUnit unit) {
    const NalType type = type_of(unit);
    return (type >= NalType::sei && type <= NalType::delimiter) ||
           (type >= NalType::prefix_nal && type <= NalType::reserved_18);
}

// Where the next start code of three bytes begins, from a place on; the stream's size when none does.
inline std::size_t find_start_code(std::span<const std::uint8_t> stream, std::size_t from) {
    constexpr std::array<std::uint8_t, 3> start_code{0, 0, 1};
    const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(std::min(from, stream.size()));
    return static_cast<std::size_t>(std::search(begin, stream.end(), start_code.begin(), start_code.end()) -
                                    stream.begin());
}

}  // namespace formats
