// Where a packet begins and ends among other bytes, and whether it is whole. Little-endian:
//
//   0  0x55, the packet's size (0xF8 stands for 1016), 0x04, sum of these three
//   4  sender, receiver, sequence number (2 bytes), type, set, id
//   11 payload
//   …  sum of all before it (2 bytes)
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace formats {

constexpr std::uint8_t packet_start_byte = 0x55;
constexpr std::uint8_t packet_version = 0x04;
// A packet without payload: 11 header bytes and the two of its sum.
constexpr std::size_t packet_overhead = 13;
// The length byte that stands for a packet of 1016 bytes.
constexpr std::uint8_t long_packet_length_byte = 0xF8;
constexpr std::size_t long_packet_size = 1016;

// Of the first three bytes; and of all but the last two.
std::uint8_t packet_header_sum(std::span<const std::uint8_t> bytes);
std::uint16_t packet_sum(std::span<const std::uint8_t> bytes);

// The size of the packet that the bytes begin with; 0 when they begin with none, and `problem` says in a few
// words what is wrong with them.
std::size_t packet_size(std::span<const std::uint8_t> bytes, const char*& problem);

}  // namespace formats
