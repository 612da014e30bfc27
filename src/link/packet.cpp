#include "link/packet.h"

#include <atomic>
#include <cassert>

#include "link/crc.h"
#include "platform/little_endian.h"

namespace {
std::atomic<std::uint16_t> link_sequence{0};

constexpr std::size_t summed_header_size = 3;
constexpr std::size_t header_sum_offset = 3;
}  // namespace

void finish_link_packet(std::span<std::uint8_t> packet) {
    assert(packet.size() >= link_packet::minimum_size);
    store_le16(&packet[link_packet::sequence_offset], link_sequence.fetch_add(1, std::memory_order_relaxed));
    const std::size_t sum_offset = packet.size() - link_packet::crc_size;
    store_le16(&packet[sum_offset], link_crc16(packet.first(sum_offset)));
}

bool verify_link_packet(std::span<const std::uint8_t> packet) {
    if (packet.size() <= header_sum_offset ||
        packet[header_sum_offset] != link_crc8(packet.first(summed_header_size))) {
        return false;
    }
    const std::size_t sum_offset = packet.size() - link_packet::crc_size;
    return load_le16(&packet[sum_offset]) == link_crc16(packet.first(sum_offset));
}
