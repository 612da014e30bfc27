#include "sim/remote/clip.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>

#include "formats/nal_units.h"

namespace sim {
namespace {

// One NAL unit with the start code before it and the zero bytes behind it.
struct CodedUnit {
    std::span<const std::uint8_t> bytes;
    std::size_t start_code_size;

    formats::NalUnit unit() const { return bytes.subspan(start_code_size); }
};

std::vector<CodedUnit> cut_nal_units(std::span<const std::uint8_t> stream) {
    constexpr std::size_t start_code_size = 3;
    std::vector<CodedUnit> units;
    std::size_t begin = 0;
    for (std::size_t code = formats::find_start_code(stream, 0); code < stream.size();) {
        const std::size_t nal = code + start_code_size;
        const std::size_t next_code = formats::find_start_code(stream, nal);
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
AccessUnit pack(std::span<const CodedUnit> units) {
    constexpr std::array<std::uint8_t, 4> long_start_code{0, 0, 0, 1};
    AccessUnit result;
    std::vector<Bytes> wholes;
    for (const CodedUnit& unit : units) {
        const bool starts =
            wholes.empty() || formats::type_of(unit.unit()) == formats::NalType::sequence_parameters;
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
    const std::vector<CodedUnit> units = cut_nal_units(stream);
    std::vector<AccessUnit> clip;
    std::size_t begin = 0;
    bool has_slice = false;
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (has_slice &&
            (formats::begins_picture(units[i].unit()) || formats::precedes_slices(units[i].unit()))) {
            clip.push_back(pack(std::span{units}.subspan(begin, i - begin)));
            begin = i;
            has_slice = false;
        }
        has_slice = has_slice || formats::is_slice(units[i].unit());
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
