// Link packets and stream frames as the remote controller knows them. Written apart from the service's own,
// sums bit by bit and not from its tables, so that one mistake can't hide on both sides of the cable.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "formats/bytes.h"
#include "formats/packet_frame.h"
#include "formats/stream_frame.h"

namespace sim {

using formats::Bytes;

struct Packet {
    std::uint8_t sender = 0;
    std::uint8_t receiver = 0;
    std::uint16_t sequence = 0;
    std::uint8_t type = 0;
    std::uint8_t set = 0;
    std::uint8_t id = 0;
    Bytes payload;
};

using formats::packet_overhead;

// The packet as it goes over the cable, with both sums. The payload is at most 234 bytes.
Bytes encode_packet(const Packet& packet);

// Takes one packet off the front of the bytes. On success the size of the packet, and `packet` holds it; else
// 0, and `problem` says in a few words what is wrong with the bytes.
std::size_t decode_packet(std::span<const std::uint8_t> bytes, Packet& packet, std::string& problem);

// A stream frame around the payload, which is at most 65,535 bytes.
Bytes encode_frame(formats::FrameType type, std::span<const std::uint8_t> payload);

}  // namespace sim
