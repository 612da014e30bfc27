#include "sim/aircraft/packet.h"

#include <cassert>

#include "platform/little_endian.h"

namespace sim {

Bytes encode_packet(const Packet& packet) {
    const std::size_t size = packet_overhead + packet.payload.size();
    assert(size < formats::long_packet_length_byte);
    Bytes bytes{formats::packet_start_byte, static_cast<std::uint8_t>(size), formats::packet_version};
    bytes.reserve(size);
    bytes.push_back(formats::packet_header_sum(bytes));
    bytes.insert(bytes.end(), {packet.sender, packet.receiver, 0, 0, packet.type, packet.set, packet.id});
    store_le16(&bytes[6], packet.sequence);
    bytes.insert(bytes.end(), packet.payload.begin(), packet.payload.end());
    const std::uint16_t sum = formats::packet_sum(bytes);
    bytes.insert(bytes.end(), {static_cast<std::uint8_t>(sum), static_cast<std::uint8_t>(sum >> 8)});
    return bytes;
}

std::size_t decode_packet(std::span<const std::uint8_t> bytes, Packet& packet, std::string& problem) {
    const char* found = "";
    const std::size_t size = formats::packet_size(bytes, found);
    if (size == 0) {
        problem = found;
        return 0;
    }
    packet = {bytes[4],
              bytes[5],
              load_le16(&bytes[6]),
              bytes[8],
              bytes[9],
              bytes[10],
              Bytes(bytes.begin() + 11, bytes.begin() + static_cast<std::ptrdiff_t>(size) - 2)};
    return size;
}

Bytes encode_frame(formats::FrameType type, std::span<const std::uint8_t> payload) {
    assert(payload.size() <= 0xFFFF);
    Bytes frame{0x55, 0xCC, static_cast<std::uint8_t>(type), 0x57, 0, 0, 0, 0};
    frame.reserve(formats::frame_header_size + payload.size());
    store_le16(&frame[4], static_cast<std::uint16_t>(payload.size()));
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

}  // namespace sim
