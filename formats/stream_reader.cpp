#include "formats/stream_reader.h"

#include <algorithm>

#include "platform/little_endian.h"

namespace formats {
namespace {

bool is_frame_header(std::span<const std::uint8_t> bytes) {
    const bool known_type = bytes[2] == static_cast<std::uint8_t>(FrameType::packets) ||
                            bytes[2] == static_cast<std::uint8_t>(FrameType::video);
    return bytes[0] == 0x55 && bytes[1] == 0xCC && known_type && bytes[3] == 0x57;
}

}  // namespace

std::optional<std::size_t> find_frame(std::span<const std::uint8_t> bytes) {
    for (std::size_t at = 0; at + frame_header_size <= bytes.size(); ++at) {
        if (is_frame_header(bytes.subspan(at))) {
            return at;
        }
    }
    return std::nullopt;
}

void StreamReader::add(std::span<const std::uint8_t> bytes) {
    if (pending_.empty()) {
        const std::size_t done = read_frames(bytes);
        pending_.assign(bytes.begin() + static_cast<std::ptrdiff_t>(done), bytes.end());
        return;
    }
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    const std::size_t done = read_frames(pending_);
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(done));
}

std::size_t StreamReader::read_frames(std::span<const std::uint8_t> bytes) {
    std::size_t done = 0;
    while (const auto header = find_frame(bytes.subspan(done))) {
        const std::size_t begin = done + *header;
        const std::size_t length = load_le16(&bytes[begin + 4]);
        const std::size_t payload = begin + frame_header_size;
        if (payload + length > bytes.size()) {
            return begin;
        }
        handler_(static_cast<FrameType>(bytes[begin + 2]), bytes.subspan(payload, length));
        done = payload + length;
    }
    // What could still become a header is kept.
    const std::size_t kept = std::min(bytes.size() - done, frame_header_size - 1);
    return bytes.size() - kept;
}

}  // namespace formats
