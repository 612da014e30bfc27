// Command packets are copied from constant templates; this makes the templates, at compile time.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "link/crc.h"
#include "link/packet.h"

// The five header bytes that differ from command to command.
struct LinkCommand {
    std::uint8_t sender;
    std::uint8_t receiver;
    std::uint8_t type;
    std::uint8_t set;
    std::uint8_t id;
};

// A whole packet of that length with its header sum: sequence number and packet sum are zero, as are the
// payload bytes beyond those given, all to be filled in a copy (see finish_link_packet). A payload that does
// not fit, or a length that byte 1 can't say, does not compile.
template <std::size_t length>
consteval std::array<std::uint8_t, length> make_link_packet(
    const LinkCommand& command, std::initializer_list<std::uint8_t> payload = {}) {
    static_assert(length >= link_packet::minimum_size && length <= 0xFF);
    std::array<std::uint8_t, length> packet{};
    packet[0] = link_packet::start_byte;
    packet[1] = length;
    packet[2] = link_packet::version_byte;
    packet[3] = link_crc8(std::span{packet}.template first<3>());
    packet[4] = command.sender;
    packet[5] = command.receiver;
    packet[8] = command.type;
    packet[9] = command.set;
    packet[10] = command.id;
    if (payload.size() > length - link_packet::minimum_size) {
        throw "the payload is longer than the packet";
    }
    std::copy(payload.begin(), payload.end(), packet.begin() + link_packet::header_size);
    return packet;
}
