#include "link/packet.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <set>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "link/crc.h"
#include "link/packet_template.h"
#include "platform/little_endian.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes bytes_of(std::string_view text) {
    return {text.begin(), text.end()};
}

// The check values of the published catalogue of CRC algorithms, for the initial value that is listed there.
TEST(Checksums, GiveTheCatalogueCheckValues) {
    EXPECT_EQ(link_crc8(bytes_of("123456789"), 0), 0xA1);
    EXPECT_EQ(link_crc16(bytes_of("123456789"), 0), 0x2189);
}

// Lengths on both sides of the eight bytes that are looked up together; sums taken bit by bit.
TEST(Checksums, HoldAtEveryLength) {
    const std::uint16_t expected[] = {0x3692, 0xB7AD, 0x6FD1, 0xE479, 0xDC39, 0xEABA, 0x4D96, 0x94C4, 0xF403,
                                      0xBE27, 0xC8C2, 0x4A8C, 0xF0FD, 0xE6F6, 0x49BA, 0xF3E6, 0x7A3C, 0xEB14};
    Bytes bytes(std::size(expected) - 1);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    for (std::size_t length = 0; length < std::size(expected); ++length) {
        EXPECT_EQ(link_crc16(std::span{bytes}.first(length)), expected[length]) << length;
    }
}

using RecordStart = std::array<std::uint8_t, 14>;
constexpr RecordStart record_start = make_link_packet<14>({0x02, 0x01, 0x40, 0x02, 0x02}, {0x01});

// Takes numbers until the counter stands at the one asked for.
RecordStart finish_with_number(std::uint16_t number) {
    RecordStart packet = record_start;
    for (int tries = 0; tries <= 0xFFFF; ++tries) {
        packet = record_start;
        finish_link_packet(packet);
        if (load_le16(&packet[6]) == number) {
            break;
        }
    }
    return packet;
}

TEST(FinishedPackets, AreThoseThatTheCameraTakes) {
    EXPECT_EQ(finish_with_number(0), (RecordStart{0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0x00, 0x00, 0x40, 0x02,
                                                  0x02, 0x01, 0x08, 0x44}));
    EXPECT_EQ(finish_with_number(0x2FDE), (RecordStart{0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0xDE, 0x2F, 0x40,
                                                       0x02, 0x02, 0x01, 0x04, 0x32}));
}

TEST(FinishedPackets, CountOnFromZeroAfterTheLastNumber) {
    ASSERT_EQ(load_le16(&finish_with_number(0xFFFF)[6]), 0xFFFF);
    RecordStart packet = record_start;
    finish_link_packet(packet);
    EXPECT_EQ(load_le16(&packet[6]), 0);
    EXPECT_TRUE(verify_link_packet(packet));
}

TEST(FinishedPackets, ShareNoNumberBetweenThreads) {
    constexpr std::size_t packets_each = 20'000;
    const auto take = [](std::vector<std::uint16_t>& numbers) {
        for (std::size_t i = 0; i < packets_each; ++i) {
            RecordStart packet = record_start;
            finish_link_packet(packet);
            numbers.push_back(load_le16(&packet[6]));
        }
    };
    std::vector<std::uint16_t> mine;
    std::vector<std::uint16_t> others;
    std::thread other{take, std::ref(others)};
    take(mine);
    other.join();
    std::set<std::uint16_t> all{mine.begin(), mine.end()};
    all.insert(others.begin(), others.end());
    EXPECT_EQ(all.size(), 2 * packets_each);
}

// A packet of 1016 bytes, which says 0xF8 in byte 1, with the two sums that go with its byte 2.
struct LongPacket {
    std::uint8_t byte_2;
    std::uint8_t header_sum;
    std::uint16_t packet_sum;

    Bytes bytes() const {
        Bytes packet(1016);
        for (std::size_t i = 0; i < packet.size(); ++i) {
            packet[i] = static_cast<std::uint8_t>(i * 7 + 3);
        }
        packet[0] = 0x55;
        packet[1] = 0xF8;
        packet[2] = byte_2;
        packet[3] = header_sum;
        store_le16(&packet[1014], packet_sum);
        return packet;
    }
};

constexpr LongPacket long_packets[] = {{0x04, 0x55, 0xB8E9}, {0x00, 0x34, 0x3089}, {0xFF, 0x01, 0x8AC9}};

TEST(Verification, TakesLongPacketsWhateverByte2) {
    for (const LongPacket& packet : long_packets) {
        EXPECT_TRUE(verify_link_packet(packet.bytes())) << int{packet.byte_2};
    }
}

TEST(Verification, NoticesEverySingleWrongBit) {
    const Bytes whole = {0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0xDE, 0x2F, 0x40, 0x02, 0x02, 0x01, 0x04, 0x32};
    ASSERT_TRUE(verify_link_packet(whole));
    for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
        Bytes wrong = whole;
        wrong[bit / 8] = static_cast<std::uint8_t>(wrong[bit / 8] ^ 1 << bit % 8);
        EXPECT_FALSE(verify_link_packet(wrong)) << "bit " << bit;
    }
}

// Lengths that leave no room for a whole header are still asked about by the scanner.
TEST(Verification, ReadsNothingBeyondShortPackets) {
    const Bytes shortest_valid = {0x55, 0x05, 0xF8, 0x92, 0x61};  // its two sums share a byte
    EXPECT_TRUE(verify_link_packet(Bytes{shortest_valid}));
    for (std::size_t length = 0; length < shortest_valid.size(); ++length) {
        const Bytes cut{shortest_valid.begin(), shortest_valid.begin() + static_cast<std::ptrdiff_t>(length)};
        EXPECT_FALSE(verify_link_packet(cut)) << length;
    }
}

}  // namespace
