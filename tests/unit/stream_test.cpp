// The stream parser between the reader, played here, and its consumers, which note what they are given: the
// definitions below take the place of the service's own.
#include "link/stream.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "state/camera_decode.h"
#include "tests/plain_stream.h"
#include "video/frame_buffers.h"

namespace {

using plain::Bytes;
using plain::Handed;

Handed dispatched;

}  // namespace

void publish_video_frame(std::span<const std::uint8_t> payload) {
    dispatched.emplace_back('J', Bytes(payload.begin(), payload.end()));
}

void decode_camera_packet(std::span<const std::uint8_t> packet) {
    dispatched.emplace_back('P', Bytes(packet.begin(), packet.end()));
}

namespace {

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes frame(std::uint8_t type, const Bytes& payload) {
    const Bytes header = {0x55,
                          0xCC,
                          type,
                          0x57,
                          static_cast<std::uint8_t>(payload.size()),
                          static_cast<std::uint8_t>(payload.size() >> 8),
                          0xA1,
                          0xA2};
    return header + payload;
}

// Bytes that hold no sync pattern.
Bytes filler(std::size_t size, std::uint8_t first = 0) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>((first + i * 3) % 0x48);
    }
    return bytes;
}

const Bytes bare_packet = {0x55, 0x0D, 0x04, 0x33, 0x01, 0x02, 0x00, 0x00, 0x00, 0x02, 0x81, 0x50, 0xF5};
const Bytes other_packet = {0x55, 0x0E, 0x04, 0x66, 0x01, 0x02, 0x00,
                            0x00, 0x00, 0x02, 0x81, 0xAA, 0x7C, 0xCD};
const Bytes wrong_sum = {0x55, 0x0D, 0x04, 0x33, 0x01, 0x02, 0x00, 0x00, 0x00, 0x02, 0x81, 0x50, 0xF6};

const Bytes around_packet = {0x55, 0x1A, 0x04, 0xB1, 0x01, 0x02, 0x00, 0x00, 0x00, 0x02, 0x81, 0x55, 0x0D,
                             0x04, 0x33, 0x01, 0x02, 0x00, 0x00, 0x00, 0x02, 0x81, 0x50, 0xF5, 0xC0, 0xA8};

// What the reader has read and not yet parsed, the buffer's capacity and limit as on the board.
struct Reader {
    std::size_t limit = 49'486;
    Bytes buffer = Bytes(50'000);
    std::uint32_t fill = 0;
    std::uint32_t searched = 0;

    int read(std::span<const std::uint8_t> bytes) {
        std::memcpy(buffer.data() + fill, bytes.data(), bytes.size());
        fill += static_cast<std::uint32_t>(bytes.size());
        if (fill > limit) {
            fill = 0;
        }
        return parse_usb_stream(buffer.data(), fill, searched);
    }

    Bytes rest() const { return {buffer.begin(), buffer.begin() + fill}; }
};

struct Outcome {
    Handed dispatched;
    Bytes rest;
    bool operator==(const Outcome&) const = default;
};

// Reads the stream cut after each of the given sizes, the last one repeated.
Outcome play(const Bytes& stream, const std::vector<std::size_t>& sizes) {
    dispatched.clear();
    Reader reader;
    std::size_t cut = 0;
    for (std::size_t position = 0; position < stream.size();) {
        const std::size_t size = std::min(sizes[std::min(cut++, sizes.size() - 1)], stream.size() - position);
        EXPECT_EQ(reader.read(std::span{stream}.subspan(position, size)), 0);
        position += size;
    }
    return {dispatched, reader.rest()};
}

// Garbage that stands before a frame waits for it, since the size that it seems to give is never reached.
const Bytes patient_garbage = {0x00, 0x55, 0xCC, 0x49, 0xFF, 0xFF, 0x4A, 0x57, 0x55};

TEST(Stream, IsDispatchedAlikeHoweverItIsCut) {
    const Bytes video = filler(40, 7);
    const Bytes long_video = filler(1500);
    const Bytes stream = patient_garbage + frame(0x4A, video) + frame(0x49, bare_packet + other_packet) +
                         patient_garbage + frame(0x4A, long_video) + frame(0x49, {}) +
                         frame(0x49, filler(5) + wrong_sum + other_packet) + frame(0x4A, {0x01}) +
                         patient_garbage;
    const Outcome expected{{{'J', video},
                            {'P', bare_packet},
                            {'P', other_packet},
                            {'J', long_video},
                            {'P', other_packet},
                            {'J', {0x01}}},
                           patient_garbage};
    for (std::size_t first = 1; first < stream.size(); ++first) {
        EXPECT_EQ(play(stream, {first, 512}), expected) << "first read of " << first;
    }
    for (std::size_t size = 1; size <= 512; size += size < 16 ? 1 : 31) {
        EXPECT_EQ(play(stream, {size}), expected) << "reads of " << size;
    }
    EXPECT_EQ(play(stream, {512}), expected);
}

TEST(Stream, HoldsAFrameUntilOneMoreByteIsThere) {
    dispatched.clear();
    Reader reader;
    reader.read(frame(0x4A, {1, 2, 3}));
    EXPECT_TRUE(dispatched.empty());
    EXPECT_EQ(reader.fill, 11U);
    reader.read(frame(0x49, bare_packet));
    EXPECT_EQ(dispatched, (Handed{{'J', {1, 2, 3}}}));
    reader.read(Bytes{0x77});
    EXPECT_EQ(dispatched, (Handed{{'J', {1, 2, 3}}, {'P', bare_packet}}));
    EXPECT_EQ(reader.rest(), Bytes{0x77});
}

TEST(Stream, ReachesTheEndOfTheBuffer) {
    const Bytes longest = filler(49'000);
    EXPECT_EQ(play(frame(0x4A, longest) + Bytes{0x55}, {512}).dispatched, (Handed{{'J', longest}}));
}

struct Reported {
    const char* what;
    Bytes stream;
    std::string text;
    Handed dispatched;
    Bytes rest;
};

const Bytes video_frame = frame(0x4A, {9});

const Reported reported[] = {
    {"a frame without payload", frame(0x4A, {}) + Bytes{0x55}, "Queue part len is zero\n", {}, {0x55}},
    {"an unknown type", frame(0x4B, {1, 2}) + Bytes{3}, "\n\nUnknown type 0x4B\n\n", {}, {3}},
    {"an unknown type before a frame is garbage",
     frame(0x4B, {1, 2}) + video_frame + Bytes{3},
     "",
     {{'J', {9}}},
     {3}},
    {"an unknown type that is not complete", frame(0x4B, {1, 2}), "", {}, frame(0x4B, {1, 2})},
    {"what is not longer than a header", {0, 0, 0, 0, 0, 0, 0, 0}, "", {}, {0, 0, 0, 0, 0, 0, 0, 0}},
    {"a header's worth of nothing",
     {0, 0, 0, 0, 0, 0, 0, 0, 0},
     "\n\nSOMETHING WRONG: 8 bytes: 0x00,0x00,0x00,0x00,0x00,0x00,0x00,0x00,\n\n\n",
     {},
     {0}},
    {"less than forty bytes",
     Bytes{0x55, 0xCC, 0x4A, 0x58, 0x04, 0x00, 0xFE, 0x0A, 1, 2, 3, 4} + Bytes{0x55},
     "\n\nSOMETHING WRONG: 12 bytes: 0x55,0xCC,0x4A,0x58,0x04,0x00,0xFE,0x0A,0x01,0x02,0x03,0x04,\n\n\n",
     {},
     {0x55}},
    {"more than forty bytes",
     Bytes{0x00, 0xCC, 0x4A, 0x57, 0x34, 0x00} + Bytes(54, 0xEE) + Bytes{1, 2},
     "\n\nSOMETHING WRONG: 60 bytes: "
     "0x00,0xCC,0x4A,0x57,0x34,0x00,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,"
     "0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,"
     "0xEE,0xEE,"
     "0xEE,0xEE,\n\n\n",
     {},
     {1, 2}},
    {"a sync pattern with the byte after it waits for the rest",
     {0, 0, 0, 0, 2, 0, 0, 0, 0x55, 0xCC, 0x4A, 0x57, 1},
     "",
     {},
     {0, 0, 0, 0, 2, 0, 0, 0, 0x55, 0xCC, 0x4A, 0x57, 1}},
    {"a sync pattern without the byte after it is not seen",
     Bytes{0, 0, 0, 0, 2, 0, 0, 0, 0x55, 0xCC, 0x4A, 0x57},
     "\n\nSOMETHING WRONG: 10 bytes: 0x00,0x00,0x00,0x00,0x02,0x00,0x00,0x00,0x55,0xCC,\n\n\n",
     {},
     {0x4A, 0x57}},
};

TEST(Stream, ReportsWhatItDrops) {
    for (const Reported& row : reported) {
        testing::internal::CaptureStderr();
        const Outcome outcome = play(row.stream, {512});
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.text) << row.what;
        EXPECT_EQ(outcome, (Outcome{row.dispatched, row.rest})) << row.what;
    }
}

// Streams made of little but the bytes that matter, so that whole and broken headers come up often. What the
// parser remembers from one read to the next shows nowhere, not when the buffer overflows either.
TEST(Stream, AgreesWithThePlainParserOnAnything) {
    std::mt19937 random{20};
    const Bytes alphabet = {0x55, 0x55, 0xCC, 0xCC, 0x4A, 0x4A, 0x49, 0x4B,
                            0x57, 0x57, 0x00, 0x00, 0x00, 0x01, 0x09};
    testing::internal::CaptureStderr();
    std::size_t frames = 0;
    for (int round = 0; round < 300; ++round) {
        const std::size_t limit = round % 2 == 0 ? 49'486 : 700;
        Reader reader{limit};
        Bytes left;
        Handed expected;
        dispatched.clear();
        for (int step = 0; step < 40; ++step) {
            Bytes bytes(1 + random() % 200);
            for (std::uint8_t& byte : bytes) {
                byte = alphabet[random() % alphabet.size()];
            }
            if (random() % 2 == 0) {
                bytes = bytes + (random() % 4 == 0 ? frame(0x49, bare_packet + wrong_sum + other_packet)
                                                   : frame(0x4A, filler(random() % 300)));
                bytes.resize(std::min<std::size_t>(bytes.size(), 512));
            }
            reader.read(bytes);
            left = left + bytes;
            if (left.size() > limit) {
                left.clear();
            }
            plain::parse(left, expected);
            ASSERT_EQ(reader.rest(), left) << "round " << round << " step " << step;
        }
        ASSERT_EQ(dispatched, expected) << "round " << round;
        frames += dispatched.size();
    }
    testing::internal::GetCapturedStderr();
    EXPECT_GT(frames, 1000U);
}

struct Scanned {
    const char* what;
    Bytes payload;
    std::vector<Bytes> packets;
};

const Scanned scanned[] = {
    {"nothing", {}, {}},
    {"a start byte at the end", {0x00, 0x55}, {}},
    {"two packets back to back", bare_packet + other_packet, {bare_packet, other_packet}},
    {"a packet inside a whole one", around_packet, {around_packet}},
    {"a packet between other bytes",
     Bytes{0x55, 0x00, 0x55} + bare_packet + Bytes{0x55, 0xFF},
     {bare_packet}},
    {"a length below a header's", Bytes{0x55, 0x03} + bare_packet, {bare_packet}},
    {"a packet cut short", {bare_packet.begin(), bare_packet.end() - 1}, {}},
    {"a long packet's code in a short payload", Bytes{0x55, 0xF8} + bare_packet, {bare_packet}},
    {"a packet inside one whose sum is wrong",
     Bytes{0x55, 0x1B, 0x04, 0x75} + bare_packet + Bytes(10, 0x00),
     {bare_packet}},
    {"a header sum that is wrong under a right packet sum",
     {0x55, 0x0D, 0x04, 0x34, 0x01, 0x02, 0x00, 0x00, 0x00, 0x02, 0x81, 0x5E, 0x69},
     {}},
};

TEST(Scanner, FindsTheVerifiedPackets) {
    for (const Scanned& row : scanned) {
        dispatched.clear();
        // On the heap and of this length, so that AddressSanitizer sees a read beyond it.
        scan_camera_packets(Bytes{row.payload});
        Handed expected;
        for (const Bytes& packet : row.packets) {
            expected.emplace_back('P', packet);
        }
        EXPECT_EQ(dispatched, expected) << row.what;
    }
}

TEST(Scanner, TakesLongPacketsWhole) {
    Bytes packet(1016);
    for (std::size_t i = 0; i < packet.size(); ++i) {
        packet[i] = static_cast<std::uint8_t>(i * 7 + 3);
    }
    const Bytes header = {0x55, 0xF8, 0xFF, 0x01};
    std::copy(header.begin(), header.end(), packet.begin());
    packet[1014] = 0xC9;
    packet[1015] = 0x8A;
    dispatched.clear();
    scan_camera_packets(Bytes{0x55} + packet + bare_packet);
    EXPECT_EQ(dispatched, (Handed{{'P', packet}, {'P', bare_packet}}));
}

TEST(Scanner, LosesAPacketThatTwoFramesShare) {
    const Bytes first{bare_packet.begin(), bare_packet.begin() + 6};
    const Bytes second{bare_packet.begin() + 6, bare_packet.end()};
    EXPECT_TRUE(play(frame(0x49, first) + frame(0x49, second) + Bytes{0}, {512}).dispatched.empty());
}

}  // namespace
