// The link packet: start byte 0x55, length, version byte, header CRC-8, sender, receiver, 16-bit sequence
// number, command type, command set, command id, payload, CRC-16. Multi-byte fields are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace link_packet {
constexpr std::size_t header_size = 11;  // offset of the payload
constexpr std::size_t crc_size = 2;
constexpr std::size_t minimum_size = header_size + crc_size;
constexpr std::size_t sequence_offset = 6;
constexpr std::uint8_t start_byte = 0x55;
constexpr std::uint8_t version_byte = 0x04;
}  // namespace link_packet

// Completes a packet copied from its template, in place: stores the next number of link_sequence at offset 6
// and the packet sum in the last two bytes. Numbers are unique and consecutive over all threads; the first is
// 0. UDP reader and gimbal motion threads.
void finish_link_packet(std::span<std::uint8_t> packet);

// True when byte 3 is the header sum of bytes 0 to 2 and the last two bytes are the packet sum of all bytes
// before them. The header sum is looked at first, so most false starts cost three bytes. Fewer than 4 bytes
// hold no header and are false.
bool verify_link_packet(std::span<const std::uint8_t> packet);
