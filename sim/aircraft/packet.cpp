#include "sim/aircraft/packet.h"

#include <cassert>

#include "platform/little_endian.h"

namespace sim {
namespace {

constexpr std::uint8_t start_byte = 0x55;
constexpr std::uint8_t version = 0x04;

// One step of a reflected CRC: eight shifts, the polynomial subtracted for each one that falls out.
template <typename Sum>
Sum step(Sum sum, Sum polynomial) {
    for (int bit = 0; bit < 8; ++bit) {
        sum = static_cast<Sum>((sum & 1) != 0 ? (sum >> 1) ^ polynomial : sum >> 1);
    }
    return sum;
}

// CRC-8/MAXIM's polynomial, starting from 0x77.
std::uint8_t header_sum(std::span<const std::uint8_t> bytes) {
    std::uint8_t sum = 0x77;
    for (const std::uint8_t byte : bytes) {
        sum = step<std::uint8_t>(sum ^ byte, 0x8C);
    }
    return sum;
}

// CRC-16/KERMIT's polynomial, starting from 0x3692.
std::uint16_t packet_sum(std::span<const std::uint8_t> bytes) {
    std::uint16_t sum = 0x3692;
    for (const std::uint8_t byte : bytes) {
        sum = step<std::uint16_t>(sum ^ byte, 0x8408);
    }
    return sum;
}

}  // namespace

Bytes encode_packet(const Packet& packet) {
    const std::size_t size = packet_overhead + packet.payload.size();
    assert(size < long_packet_length_byte);
    Bytes bytes{start_byte, static_cast<std::uint8_t>(size), version};
    bytes.reserve(size);
    bytes.push_back(header_sum(bytes));
    bytes.insert(bytes.end(), {packet.sender, packet.receiver, 0, 0, packet.type, packet.set, packet.id});
    store_le16(&bytes[6], packet.sequence);
    bytes.insert(bytes.end(), packet.payload.begin(), packet.payload.end());
    const std::uint16_t sum = packet_sum(bytes);
    bytes.insert(bytes.end(), {static_cast<std::uint8_t>(sum), static_cast<std::uint8_t>(sum >> 8)});
    return bytes;
}

std::size_t decode_packet(std::span<const std::uint8_t> bytes, Packet& packet, std::string& problem) {
    if (bytes.empty() || bytes[0] != start_byte) {
        problem = "no start byte";
        return 0;
    }
    if (bytes.size() < packet_overhead) {
        problem = "shorter than any packet";
        return 0;
    }
    if (bytes[3] != header_sum(bytes.first(3))) {
        problem = "wrong header sum";
        return 0;
    }
    const std::size_t size = bytes[1] == long_packet_length_byte ? long_packet_size : bytes[1];
    if (size < packet_overhead || size > bytes.size()) {
        problem = "wrong length";
        return 0;
    }
    if (load_le16(&bytes[size - 2]) != packet_sum(bytes.first(size - 2))) {
        problem = "wrong packet sum";
        return 0;
    }
    if (bytes[2] != version) {
        problem = "wrong version";
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
