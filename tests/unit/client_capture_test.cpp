// A capture taken apart by the library.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>

#include "ardenvue/capture.h"
#include "formats/capture_file.h"
#include "sim/aircraft/packet.h"

namespace {

using formats::Direction;
using sim::Bytes;
using std::chrono::microseconds;
using Piece = std::tuple<int, std::int64_t, Bytes>;

Bytes joined(const std::vector<Bytes>& parts) {
    Bytes bytes;
    for (const Bytes& part : parts) {
        bytes.insert(bytes.end(), part.begin(), part.end());
    }
    return bytes;
}

class ClientCapture : public testing::Test {
  protected:
    const std::string path = testing::TempDir() + "client_capture." + std::to_string(getpid());

    void TearDown() override { std::remove(path.c_str()); }

    // The pieces, and the code behind the last one.
    std::vector<Piece> pieces(int& end) {
        ArdenvueCapture* capture = nullptr;
        EXPECT_EQ(ardenvue_capture_open(&capture, path.c_str()), 0);
        std::vector<Piece> pieces;
        ArdenvuePiece piece{};
        while ((end = ardenvue_capture_next(capture, &piece)) == 0) {
            pieces.emplace_back(piece.kind, piece.time_ns, Bytes(piece.data, piece.data + piece.size));
        }
        ardenvue_capture_close(capture);
        return pieces;
    }
};

// Records are cut anywhere; a piece has the time of the record that it ends in.
TEST_F(ClientCapture, ComesApartIntoVideoAndPackets) {
    const Bytes video(300, 0x61);
    const Bytes push = sim::encode_packet({1, 2, 3, 0, 2, 0x80, Bytes(40, 9)});
    Bytes damaged = push;
    damaged.back() ^= 1;
    const Bytes command = sim::encode_packet({2, 1, 7, 0x40, 2, 1, {1}});
    const Bytes stream =
        joined({sim::encode_frame(formats::FrameType::video, video),
                sim::encode_frame(formats::FrameType::packets, joined({push, damaged, push}))});
    const Bytes commands = joined({command, {9, 9}, command, command});
    {
        formats::CaptureWriter writer;
        ASSERT_TRUE(writer.open(path));
        const std::span<const std::uint8_t> all{stream};
        writer.write(microseconds{5}, Direction::from_remote, all.first(100));
        writer.write(microseconds{6}, Direction::to_remote, std::span{commands}.first(20));
        writer.write(microseconds{7}, Direction::from_remote, all.subspan(100, 300));
        writer.write(microseconds{8}, Direction::from_remote, all.subspan(400));
        writer.write(microseconds{9}, Direction::to_remote, std::span{commands}.subspan(20));
        writer.write(microseconds{10}, Direction::from_remote,
                     sim::encode_frame(formats::FrameType::packets, {}));
    }
    int end = 0;
    EXPECT_THAT(
        pieces(end),
        testing::ElementsAre(
            Piece{ARDENVUE_PIECE_COMMAND, 6'000, command}, Piece{ARDENVUE_PIECE_DAMAGED, 6'000, Bytes{9, 9}},
            Piece{ARDENVUE_PIECE_VIDEO, 7'000, video}, Piece{ARDENVUE_PIECE_PACKET, 8'000, push},
            Piece{ARDENVUE_PIECE_DAMAGED, 8'000, damaged}, Piece{ARDENVUE_PIECE_PACKET, 8'000, push},
            Piece{ARDENVUE_PIECE_COMMAND, 9'000, command}, Piece{ARDENVUE_PIECE_COMMAND, 9'000, command}));
    EXPECT_EQ(end, ARDENVUE_ERROR_NONE_YET);
    // Cut off in the middle of a record, as by a board that lost its power.
    ASSERT_EQ(truncate(path.c_str(), 16 + 16 + 100 + 16 + 20 + 16 + 200), 0);
    EXPECT_EQ(pieces(end).size(), 3U) << "the command, and what stands behind it";
    EXPECT_EQ(end, ARDENVUE_ERROR_DATA);
}

TEST_F(ClientCapture, APlainRecordingHasNoTimes) {
    const Bytes frame = sim::encode_frame(formats::FrameType::video, Bytes(50'000, 1));
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    std::fwrite(frame.data(), 1, frame.size(), file);
    std::fwrite(frame.data(), 1, frame.size(), file);
    std::fwrite(frame.data(), 1, 8, file);
    std::fclose(file);
    int end = 0;
    const std::vector<Piece> found = pieces(end);
    EXPECT_THAT(found, testing::ElementsAre(Piece{ARDENVUE_PIECE_VIDEO, 0, Bytes(50'000, 1)},
                                            Piece{ARDENVUE_PIECE_VIDEO, 0, Bytes(50'000, 1)}));
    ArdenvueCapture* none = nullptr;
    EXPECT_EQ(ardenvue_capture_open(&none, (path + ".none").c_str()), ARDENVUE_ERROR_SYSTEM);
    EXPECT_EQ(none, nullptr);
}

}  // namespace
