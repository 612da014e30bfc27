#include "sim/remote/clip.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>

namespace sim {
namespace {

enum NalType : std::uint8_t {
    slice = 1,
    idr_slice = 5,
    sei = 6,
    sequence_parameters = 7,
    picture_parameters = 8,
    delimiter = 9,
    prefix_nal = 14,
    reserved_18 = 18,
};

// One NAL unit with the start code before it and the zero bytes behind it.
struct NalUnit {
    std::span<const std::uint8_t> bytes;
    std::size_t start_code_size;

    std::uint8_t type() const { return bytes[start_code_size] & 0x1F; }
    bool is_slice() const { return type() == slice || type() == idr_slice; }
    // first_mb_in_slice is 0, which Exp-Golomb writes as a single 1 bit.
    bool begins_picture() const {
        return is_slice() && bytes.size() > start_code_size + 1 && (bytes[start_code_size + 1] & 0x80) != 0;
    }
    // Types that, behind a slice, belong to the next picture.
    bool precedes_slices() const {
        return (type() >= sei && type() <= delimiter) || (type() >= prefix_nal && type() <= reserved_18);
    }
};

std::vector<NalUnit> cut_nal_units(std::span<const std::uint8_t> stream) {
    constexpr std::array<std::uint8_t, 3> start_code{0, 0, 1};
    std::vector<NalUnit> units;
    std::size_t begin = 0;
    const auto find = [&](std::size_t from) {
        const auto place = std::search(stream.begin() + static_cast<std::ptrdiff_t>(from), stream.end(),
                                       start_code.begin(), start_code.end());
        return static_cast<std::size_t>(place - stream.begin());
    };
    for (std::size_t code = find(0); code < stream.size();) {
        const std::size_t nal = code + start_code.size();
        const std::size_t next_code = find(nal);
        // A zero byte before the next start code is part of that (zero_byte, B.1.1).
        const bool has_zero_byte = next_code < stream.size() && next_code > nal && stream[next_code - 1] == 0;
        const std::size_t end = next_code - (has_zero_byte ? 1 : 0);
        if (nal < end) {
            units.push_back({stream.subspan(begin, end - begin), nal - begin});
        }
        begin = end;
        code = next_code;
    }
    return units;
}

void append(Bytes& payload, std::span<const std::uint8_t> bytes) {
    payload.insert(payload.end(), bytes.begin(), bytes.end());
}

// The NAL units of one access unit as payloads.
AccessUnit pack(std::span<const NalUnit> units) {
    constexpr std::array<std::uint8_t, 4> long_start_code{0, 0, 0, 1};
    AccessUnit result;
    std::vector<Bytes> wholes;
    for (const NalUnit& unit : units) {
        const bool starts = wholes.empty() || unit.type() == sequence_parameters;
        if (starts) {
            wholes.emplace_back();
            append(wholes.back(), long_start_code);
        }
        append(wholes.back(), starts ? unit.bytes.subspan(unit.start_code_size) : unit.bytes);
    }
    for (const std::span<const std::uint8_t> whole : wholes) {
        for (std::size_t at = 0; at < whole.size(); at += max_video_payload) {
            const auto piece = whole.subspan(at, std::min(max_video_payload, whole.size() - at));
            result.payloads.emplace_back(piece.begin(), piece.end());
        }
    }
    return result;
}

}  // namespace

std::vector<AccessUnit> cut_clip(std::span<const std::uint8_t> stream) {
    const std::vector<NalUnit> units = cut_nal_units(stream);
    std::vector<AccessUnit> clip;
    std::size_t begin = 0;
    bool has_slice = false;
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (has_slice && (units[i].begins_picture() || units[i].precedes_slices())) {
            clip.push_back(pack(std::span{units}.subspan(begin, i - begin)));
            begin = i;
            has_slice = false;
        }
        has_slice = has_slice || units[i].is_slice();
    }
    if (has_slice) {
        clip.push_back(pack(std::span{units}.subspan(begin)));
    }
    return clip;
}

std::vector<AccessUnit> load_clip(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const Bytes stream{std::istreambuf_iterator<char>(file), {}};
    return cut_clip(stream);
}

}  // namespace sim
