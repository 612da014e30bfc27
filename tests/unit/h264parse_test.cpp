#include "include/h264parse.h"

#include <algorithm>
#include <bitset>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/hex.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Size {
    std::int32_t width;
    std::int32_t height;
    bool operator==(const Size&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Size& size) {
    return stream << size.width << "x" << size.height;
}

// Bytes from a text of zeros and ones, filled up with zeros.
Bytes bits(std::string_view text) {
    Bytes bytes;
    std::size_t count = 0;
    for (const char character : text) {
        if (character == ' ') {
            continue;
        }
        if (count % 8 == 0) {
            bytes.push_back(0);
        }
        if (character == '1') {
            bytes.back() = static_cast<std::uint8_t>(bytes.back() | 0x80 >> count % 8);
        }
        ++count;
    }
    return bytes;
}

H264Parse reader(const Bytes& bytes) {
    H264Parse parser;
    parser.Open(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    return parser;
}

// Parses a copy on the heap of exactly this length, so that AddressSanitizer sees a read beyond it.
bool parse(const Bytes& bytes, std::size_t length, Size& size) {
    const auto exact = std::make_unique<std::uint8_t[]>(length);
    std::copy_n(bytes.begin(), length, exact.get());
    H264Parse parser;
    return parser.ParseSps(exact.get(), static_cast<std::int32_t>(length), size.width, size.height);
}

TEST(BitReader, ReadsExpGolombCodes) {
    const Bytes codes = bits("1 010 011 00100 00101 0001000 000000011111111");
    H264Parse unsigned_reader = reader(codes);
    for (const std::uint32_t expected : {0U, 1U, 2U, 3U, 4U, 7U, 254U}) {
        EXPECT_EQ(unsigned_reader.ReadUE(), expected);
    }
    H264Parse signed_reader = reader(codes);
    for (const std::int32_t expected : {0, 1, -1, 2, -2, 4, -127}) {
        EXPECT_EQ(signed_reader.ReadSE(), expected);
    }
    EXPECT_FALSE(signed_reader.Truncated());
}

TEST(BitReader, StopsCountingAtThirtyTwoZeros) {
    // 32 zeros, the bit that ends the count (1, or a 33rd zero), then 32 bits of value: 2, and 0.
    const Bytes two = bits(std::string(32, '0') + "1" + std::string(30, '0') + "10");
    EXPECT_EQ(reader(two).ReadUE(), 1U);  // 2^32 - 1 + 2, in 32 bits
    const Bytes zero = bits(std::string(65, '0') + "1");
    H264Parse parser = reader(zero);
    EXPECT_EQ(parser.ReadUE(), 0xFFFFFFFFU);
    EXPECT_EQ(parser.ReadBit(), 1U);
    EXPECT_EQ(reader(zero).ReadSE(), std::numeric_limits<std::int32_t>::min());  // 2^31 in 32 bits
}

TEST(BitReader, GivesZerosBeyondTheEnd) {
    const Bytes bytes = {0xFF};
    H264Parse parser = reader(bytes);
    EXPECT_EQ(parser.ReadBits(0), 0U);
    EXPECT_EQ(parser.ReadBits(8), 0xFFU);
    EXPECT_FALSE(parser.Truncated());
    EXPECT_EQ(parser.ReadBits(32), 0U);
    EXPECT_TRUE(parser.Truncated());
}

struct EncoderSps {
    std::string name;
    Size probed;
    Bytes bytes;
};

std::vector<EncoderSps> encoder_table() {
    std::vector<EncoderSps> table;
    std::ifstream file{TEST_DATA "/sps.txt"};
    std::string name;
    std::string size;
    std::string hex;
    while (file >> name >> size >> hex) {
        const std::size_t cross = size.find('x');
        table.push_back({name, {std::stoi(size), std::stoi(size.substr(cross + 1))}, bytes_from_hex(hex)});
    }
    return table;
}

// A crop offset counts two pixels here. ITU-T H.264, equations 7-19 to 7-22, has one pixel where chroma is
// not subsampled (4:4:4, monochrome, and vertically 4:2:2) and four lines where fields are coded; the probe
// follows it.
const std::map<std::string, Size> two_pixel_crops = {
    {"high-interlaced-cropped", {1920, 1084}},
    {"high-monochrome", {1916, 1068}},
    {"high422", {1920, 1072}},
    {"high444", {1356, 768}},
};

TEST(Sps, GivesTheSizeThatAPlayerShows) {
    const std::vector<EncoderSps> table = encoder_table();
    ASSERT_EQ(table.size(), 21U);
    for (const EncoderSps& row : table) {
        const auto exception = two_pixel_crops.find(row.name);
        Size size{};
        EXPECT_TRUE(parse(row.bytes, row.bytes.size(), size)) << row.name;
        EXPECT_EQ(size, exception == two_pixel_crops.end() ? row.probed : exception->second) << row.name;
    }
}

// Cut after each byte: either all that the size depends on is there, or nothing is changed.
TEST(Sps, KeepsTheLastSizeWhenCutShort) {
    constexpr Size last{1280, 720};
    for (const EncoderSps& row : encoder_table()) {
        Size whole{};
        ASSERT_TRUE(parse(row.bytes, row.bytes.size(), whole));
        bool complete = false;
        for (std::size_t length = 0; length <= row.bytes.size(); ++length) {
            Size size = last;
            const bool parsed = parse(row.bytes, length, size);
            EXPECT_EQ(size, parsed ? whole : last) << row.name << " cut to " << length;
            EXPECT_TRUE(parsed || !complete) << row.name << " cut to " << length;
            complete = parsed;
            // Profile, level and the two sizes take more than six bytes in all of these.
            EXPECT_TRUE(!parsed || length > 6) << row.name << " cut to " << length;
        }
    }
}

// ITU-T H.264, 7.3.2.1.1: with these, chroma format 4:2:0, depths of 8, no bypass and no matrices come first.
TEST(Sps, KnowsTheProfilesWithMoreFields) {
    const std::string rest = "1 011 010 0 00000101000 000011110 1 1 0 0";
    const std::pair<int, bool> profiles[] = {{66, false}, {77, false}, {88, false}, {100, true},
                                             {110, true}, {122, true}, {244, true}, {44, true},
                                             {83, true},  {86, true},  {118, true}};
    for (const auto& [profile, has_more_fields] : profiles) {
        const Bytes bytes = bits(std::bitset<8>(static_cast<unsigned>(profile)).to_string() +
                                 "00000000 00011111 1" + (has_more_fields ? "010 1 1 0 0" : "") + rest);
        Size size{};
        EXPECT_TRUE(parse(bytes, bytes.size(), size)) << profile;
        EXPECT_EQ(size, (Size{640, 480})) << profile;
    }
}

// What no encoder writes. Before each: profile 77, constraints, level 31, id 0, log2_max_frame_num_minus4 0.
struct WrittenSps {
    const char* what;
    std::string rest;
    std::optional<Size> expected;
};

const std::string max_code = std::string(32, '0') + "1" + std::string(31, '0') + "0";          // 2^32 - 1
const std::string half_code = std::string(31, '0') + "1" + std::string(31, '0');               // 2^31 - 1
const std::string beyond_half_code = std::string(31, '0') + "1" + std::string(30, '0') + "1";  // 2^31

const WrittenSps written_table[] = {
    {"fields: the height counts pairs of macroblock rows, one more flag to skip",
     "011 010 0 00000101000 0001111 0 1 1 0 0", Size{640, 480}},
    {"a right crop of 4 alone", "011 010 0 00000101000 000011110 1 1 1 1 00101 1 1 0", Size{632, 480}},
    {"an order count that is not always zero", "010 0 1 1 1 010 0 00000101000 000011110 1 1 0 0",
     Size{640, 480}},
    {"a cycle longer than the data", "010 1 1 1 " + half_code + std::string(64, '1'), std::nullopt},
    {"a cycle length that is negative as a signed number",
     "010 1 1 1 " + beyond_half_code + " 010 0 00000101000 000011110 1 1 0 0", Size{640, 480}},
    {"an order count type beyond those defined", "00100 010 0 00000101000 000011110 1 1 0 0", Size{640, 480}},
    {"crops larger than the picture", "011 010 0 1 1 1 1 1 0001010 1 1 0001010 0", Size{-2, -2}},
    {"a width that wraps in 32 bits", "011 010 0 " + half_code + " 1 1 1 0 0", Size{0, 16}},
    {"the largest of everything",
     "011 010 0 " + max_code + max_code + " 0 1 1 1" + max_code + max_code + max_code + max_code + " 0",
     Size{4, 4}},
};

TEST(Sps, SurvivesWhatNoEncoderWrites) {
    for (const WrittenSps& row : written_table) {
        const Bytes bytes = bits("01001101 00000000 00011111 1 1" + row.rest);
        constexpr Size last{1280, 720};
        Size size = last;
        EXPECT_EQ(parse(bytes, bytes.size(), size), row.expected.has_value()) << row.what;
        EXPECT_EQ(size, row.expected.value_or(last)) << row.what;
    }
}

}  // namespace
