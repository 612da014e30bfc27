// The two checksums of the link packet. All of it can run at compile time, so packet templates are summed
// there.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace link_crc {

// One entry for each byte value: its remainder after eight steps, least-significant bit first.
template <typename Sum>
constexpr std::array<Sum, 256> make_table(Sum reflected_polynomial) {
    std::array<Sum, 256> table{};
    for (std::size_t value = 0; value < table.size(); ++value) {
        auto sum = static_cast<Sum>(value);
        for (int bit = 0; bit < 8; ++bit) {
            const Sum shifted = static_cast<Sum>(sum >> 1);
            sum = (sum & 1) != 0 ? static_cast<Sum>(shifted ^ reflected_polynomial) : shifted;
        }
        table[value] = sum;
    }
    return table;
}

inline constexpr auto table8 = make_table<std::uint8_t>(0x8C);
static_assert(table8[1] == 0x5E && table8[128] == 0x8C);

// Table k is the remainder of a byte with k more bytes behind it, so that eight bytes are looked up side by
// side instead of each waiting for the one before.
constexpr std::size_t slice_size = 8;

constexpr std::array<std::array<std::uint16_t, 256>, slice_size> make_slice_tables() {
    std::array<std::array<std::uint16_t, 256>, slice_size> tables{make_table<std::uint16_t>(0x8408)};
    for (std::size_t k = 1; k < tables.size(); ++k) {
        for (std::size_t value = 0; value < tables[k].size(); ++value) {
            const std::uint16_t sum = tables[k - 1][value];
            tables[k][value] = static_cast<std::uint16_t>(tables[0][sum & 0xFF] ^ (sum >> 8));
        }
    }
    return tables;
}

inline constexpr auto tables16 = make_slice_tables();
static_assert(tables16[0][1] == 0x1189 && tables16[0][128] == 0x8408);

inline constexpr std::uint8_t initial8 = 0x77;
inline constexpr std::uint16_t initial16 = 0x3692;

}  // namespace link_crc

// CRC-8 with polynomial 0x31, least-significant bit first: CRC-8/MAXIM but for the initial value. The header
// sum.
constexpr std::uint8_t link_crc8(std::span<const std::uint8_t> bytes,
                                 std::uint8_t initial = link_crc::initial8) {
    std::uint8_t sum = initial;
    for (const std::uint8_t byte : bytes) {
        sum = link_crc::table8[sum ^ byte];
    }
    return sum;
}

// CRC-16 with polynomial 0x1021, least-significant bit first: CRC-16/KERMIT but for the initial value. The
// packet sum.
constexpr std::uint16_t link_crc16(std::span<const std::uint8_t> bytes,
                                   std::uint16_t initial = link_crc::initial16) {
    const auto& table = link_crc::tables16;
    std::uint16_t sum = initial;
    for (; bytes.size() >= link_crc::slice_size; bytes = bytes.subspan(link_crc::slice_size)) {
        sum = static_cast<std::uint16_t>(table[7][(sum ^ bytes[0]) & 0xFF] ^ table[6][(sum >> 8) ^ bytes[1]] ^
                                         table[5][bytes[2]] ^ table[4][bytes[3]] ^ table[3][bytes[4]] ^
                                         table[2][bytes[5]] ^ table[1][bytes[6]] ^ table[0][bytes[7]]);
    }
    for (const std::uint8_t byte : bytes) {
        sum = static_cast<std::uint16_t>(table[0][(sum ^ byte) & 0xFF] ^ (sum >> 8));
    }
    return sum;
}
