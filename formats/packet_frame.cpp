#include "formats/packet_frame.h"

#include "platform/little_endian.h"

namespace formats {
namespace {

// One step of a reflected CRC: eight shifts, the polynomial subtracted for each one that falls out.
template <typename Sum>
Sum step(Sum sum, Sum polynomial) {
    for (int bit = 0; bit < 8; ++bit) {
        sum = static_cast<Sum>((sum & 1) != 0 ? (sum >> 1) ^ polynomial : sum >> 1);
    }
    return sum;
}

}  // namespace

// CRC-8/MAXIM's polynomial, starting from 0x77.
std::uint8_t packet_header_sum(std::span<const std::uint8_t> bytes) {
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

std::size_t packet_size(std::span<const std::uint8_t> bytes, const char*& problem) {
    if (bytes.empty() || bytes[0] != packet_start_byte) {
        problem = "no start byte";
        return 0;
    }
    if (bytes.size() < packet_overhead) {
        problem = "shorter than any packet";
        return 0;
    }
    if (bytes[3] != packet_header_sum(bytes.first(3))) {
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
    if (bytes[2] != packet_version) {
        problem = "wrong version";
        return 0;
    }
    return size;
}

}  // namespace formats
