#include "sim/remote/player.h"

#include <algorithm>

#include "sim/aircraft/pushes.h"

namespace sim {
namespace {

// How soon a request to stop is noticed.
constexpr Time patience = std::chrono::milliseconds{20};
constexpr Milliseconds read_timeout{100};

}  // namespace

Player::Player(Cable& cable, Camera& camera, PacketLog& log, const Stopwatch& stopwatch,
               CommandHandler on_command)
    : cable_{cable},
      camera_{camera},
      log_{log},
      stopwatch_{stopwatch},
      on_command_{std::move(on_command)},
      reader_{[this](formats::FrameType type, std::span<const std::uint8_t> payload) {
          if (type == formats::FrameType::video) {
              tally_.video.add(payload);
          } else {
              count_packets(payload);
          }
      }},
      listener_{[this] { listen(); }} {}

Player::~Player() {
    listening_ = false;
    listener_.join();
}

PlayEnd Player::play(Source& source, Time until, const std::atomic<bool>& stop) {
    while (!stop) {
        const auto due = source.due();
        if (!due) {
            return PlayEnd::source_ended;
        }
        const Time now = stopwatch_.now();
        if (now >= until) {
            return PlayEnd::stopped;
        }
        if (*due > now) {
            std::this_thread::sleep_for(std::min({*due - now, until - now, patience}));
            continue;
        }
        if (!send(source.take(now))) {
            return PlayEnd::device_gone;
        }
    }
    return PlayEnd::stopped;
}

bool Player::send_closing_frame() {
    return send(encode_frame(formats::FrameType::packets, {}));
}

bool Player::send(std::span<const std::uint8_t> piece) {
    if (!cable_.bulk_out(piece)) {
        return false;
    }
    tally_.stream_bytes += piece.size();
    reader_.add(piece);
    return true;
}

// Packets that don't verify are passed over a byte at a time, as every receiver of them does.
void Player::count_packets(std::span<const std::uint8_t> payload) {
    while (!payload.empty()) {
        Packet packet;
        std::string problem;
        const std::size_t size = decode_packet(payload, packet, problem);
        if (size > 0) {
            ++tally_.packets;
            if (log_.is_open()) {
                log_.add(stopwatch_.now(), formats::Direction::from_remote, payload.first(size),
                         push_name(packet));
            }
        }
        payload = payload.subspan(std::max<std::size_t>(size, 1));
    }
}

void Player::listen() {
    while (listening_) {
        const Time begun = stopwatch_.now();
        const auto transfer = cable_.bulk_in(read_timeout);
        if (!transfer) {
            // Without a device there is nothing to wait on.
            if (stopwatch_.now() - begun < read_timeout / 2) {
                std::this_thread::sleep_for(patience);
            }
            continue;
        }
        ++transfers_;
        const Time now = stopwatch_.now();
        for (const ReceivedPacket& received : camera_.receive(*transfer, now)) {
            log_.add(now, formats::Direction::to_remote, received.bytes, received.meaning);
            on_command_(received.meaning);
        }
    }
}

}  // namespace sim
