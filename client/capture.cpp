#include "ardenvue/capture.h"

#include <deque>
#include <memory>
#include <utility>

#include "client/guarded.h"
#include "formats/capture_file.h"
#include "formats/packet_frame.h"
#include "formats/stream_reader.h"

struct ArdenvueCapture {
    int next(ArdenvuePiece& piece);

    formats::CaptureReader file;

  private:
    struct Piece {
        ArdenvuePieceKind kind;
        std::chrono::microseconds time;
        formats::Bytes bytes;
    };

    void take(const formats::CaptureRecord& record);
    std::size_t take_packets(ArdenvuePieceKind kind, std::span<const std::uint8_t> bytes, bool more_follow);

    std::chrono::microseconds time_{0};
    std::deque<Piece> pieces_;
    Piece handed_out_{};
    formats::Bytes commands_;  // the beginning of a packet whose end comes in the next record
    formats::StreamReader stream_{[this](formats::FrameType type, std::span<const std::uint8_t> payload) {
        if (type == formats::FrameType::video) {
            pieces_.push_back({ARDENVUE_PIECE_VIDEO, time_, {payload.begin(), payload.end()}});
        } else {
            take_packets(ARDENVUE_PIECE_PACKET, payload, false);
        }
    }};
};

// Takes the packets among the bytes, and what stands between them; where more bytes follow, as far as it is
// certain what they are. Returns how many are done with.
std::size_t ArdenvueCapture::take_packets(ArdenvuePieceKind kind, std::span<const std::uint8_t> bytes,
                                          bool more_follow) {
    std::size_t done = 0;
    const auto put = [&](ArdenvuePieceKind what, std::size_t end) {
        if (end > done) {
            const auto piece = bytes.subspan(done, end - done);
            pieces_.push_back({what, time_, {piece.begin(), piece.end()}});
        }
        done = end;
    };
    for (std::size_t at = 0; at < bytes.size();) {
        const char* problem = nullptr;
        const std::size_t size = formats::packet_size(bytes.subspan(at), problem);
        if (size == 0 && more_follow && bytes[at] == formats::packet_start_byte &&
            bytes.size() - at < formats::long_packet_size) {
            put(ARDENVUE_PIECE_DAMAGED, at);
            return done;
        }
        if (size > 0) {
            put(ARDENVUE_PIECE_DAMAGED, at);
            put(kind, at + size);
        }
        at += size > 0 ? size : 1;
    }
    put(ARDENVUE_PIECE_DAMAGED, bytes.size());
    return done;
}

void ArdenvueCapture::take(const formats::CaptureRecord& record) {
    time_ = record.time;
    if (record.direction == formats::Direction::from_remote) {
        stream_.add(record.bytes);
        return;
    }
    commands_.insert(commands_.end(), record.bytes.begin(), record.bytes.end());
    const std::size_t done = take_packets(ARDENVUE_PIECE_COMMAND, commands_, true);
    commands_.erase(commands_.begin(), commands_.begin() + static_cast<std::ptrdiff_t>(done));
}

int ArdenvueCapture::next(ArdenvuePiece& piece) {
    while (pieces_.empty()) {
        const std::optional<formats::CaptureRecord> record = file.next();
        if (!record && !commands_.empty()) {
            take_packets(ARDENVUE_PIECE_COMMAND, std::exchange(commands_, {}), false);
            continue;
        }
        if (!record) {
            return file.damaged() ? ARDENVUE_ERROR_DATA : ARDENVUE_ERROR_NONE_YET;
        }
        take(*record);
    }
    handed_out_ = std::move(pieces_.front());
    pieces_.pop_front();
    piece = {handed_out_.kind, std::chrono::nanoseconds{handed_out_.time}.count(), handed_out_.bytes.data(),
             handed_out_.bytes.size()};
    return 0;
}

int ardenvue_capture_open(ArdenvueCapture** capture, const char* path) {
    if (capture == nullptr || path == nullptr) {
        return ARDENVUE_ERROR_ARGUMENT;
    }
    *capture = nullptr;
    return client::guarded([&] {
        auto opened = std::make_unique<ArdenvueCapture>();
        if (!opened->file.open(path)) {
            return static_cast<int>(ARDENVUE_ERROR_SYSTEM);
        }
        *capture = opened.release();
        return 0;
    });
}

void ardenvue_capture_close(ArdenvueCapture* capture) {
    delete capture;
}

int ardenvue_capture_next(ArdenvueCapture* capture, struct ArdenvuePiece* piece) {
    return client::guarded([&] { return capture->next(*piece); });
}

bool ardenvue_capture_has_times(const ArdenvueCapture* capture) {
    return capture->file.has_times();
}
