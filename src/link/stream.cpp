#include "link/stream.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "link/packet.h"
#include "platform/little_endian.h"
#include "state/camera_decode.h"
#include "video/frame_buffers.h"

namespace {
constexpr std::size_t frame_header_size = 8;
constexpr std::size_t type_offset = 2;
constexpr std::size_t length_offset = 4;
constexpr std::size_t sync_search_size = 5;  // the pattern is looked for where one more byte follows it
constexpr std::uint8_t video_type = 0x4A;
constexpr std::uint8_t packets_type = 0x49;

constexpr std::uint8_t long_packet_code = 0xF8;
constexpr std::size_t long_packet_size = 1016;

constexpr std::size_t dump_size = 40;

bool has_frame_marks(const std::uint8_t* bytes) {
    return bytes[0] == 0x55 && bytes[1] == 0xCC && bytes[3] == 0x57;
}

bool is_sync(const std::uint8_t* bytes) {
    return has_frame_marks(bytes) && (bytes[type_offset] == packets_type || bytes[type_offset] == video_type);
}

// Offset of the first sync pattern with a byte after it, at `from` or later, or where the next search is to
// begin when there is none.
std::size_t find_sync(std::span<const std::uint8_t> bytes, std::size_t from) {
    std::size_t position = from;
    while (position + sync_search_size <= bytes.size() && !is_sync(&bytes[position])) {
        ++position;
    }
    return position;
}

void dump_frame(std::span<const std::uint8_t> frame) {
    constexpr const char* digits = "0123456789ABCDEF";
    std::array<char, dump_size * 5 + 1> text{};
    char* next = text.data();
    for (const std::uint8_t byte : frame.first(std::min(frame.size(), dump_size))) {
        for (const char character : {'0', 'x', digits[byte >> 4], digits[byte & 0xF], ','}) {
            *next++ = character;
        }
    }
    std::fprintf(stderr, "\n\nSOMETHING WRONG: %d bytes: %s\n\n\n", static_cast<int>(frame.size()),
                 text.data());
}

void dispatch_frame(std::span<const std::uint8_t> frame) {
    if (!has_frame_marks(frame.data())) {
        dump_frame(frame);
        return;
    }
    const std::span<const std::uint8_t> payload = frame.subspan(frame_header_size);
    switch (const std::uint8_t type = frame[type_offset]) {
        case video_type:
            if (payload.empty()) {
                std::fputs("Queue part len is zero\n", stderr);
            } else {
                publish_video_frame(payload);
            }
            break;
        case packets_type:
            scan_camera_packets(payload);
            break;
        default:
            std::fprintf(stderr, "\n\nUnknown type 0x%02X\n\n", type);
    }
}
}  // namespace

int parse_usb_stream(std::uint8_t* buffer, std::uint32_t& fill, std::uint32_t& searched) {
    std::span<const std::uint8_t> bytes{buffer, fill};
    std::size_t from = std::min<std::size_t>(searched, fill);
    while (bytes.size() > frame_header_size) {
        from = find_sync(bytes, from);
        const std::size_t start = from + sync_search_size <= bytes.size() ? from : 0;
        if (start + frame_header_size > bytes.size()) {
            break;
        }
        const std::size_t frame_size = load_le16(&bytes[start + length_offset]) + frame_header_size;
        const std::size_t end = start + frame_size;
        if (end >= bytes.size()) {
            break;
        }
        dispatch_frame(bytes.subspan(start, frame_size));
        bytes = bytes.subspan(end);
        from -= std::min(from, end);
    }
    if (bytes.size() < fill) {
        std::memmove(buffer, bytes.data(), bytes.size());
    }
    fill = static_cast<std::uint32_t>(bytes.size());
    searched = static_cast<std::uint32_t>(from);
    return 0;
}

int parse_usb_stream(std::uint8_t* buffer, std::uint32_t& fill) {
    std::uint32_t searched = 0;
    return parse_usb_stream(buffer, fill, searched);
}

void scan_camera_packets(std::span<const std::uint8_t> payload) {
    std::size_t position = 0;
    while (position + 1 < payload.size()) {
        const std::span<const std::uint8_t> rest = payload.subspan(position);
        const std::size_t size = rest[1] == long_packet_code ? long_packet_size : rest[1];
        if (rest[0] == link_packet::start_byte && size <= rest.size() &&
            verify_link_packet(rest.first(size))) {
            decode_camera_packet(rest.first(size));
            position += size;
        } else {
            ++position;
        }
    }
}
