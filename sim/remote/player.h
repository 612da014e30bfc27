// Plays a source over a cable, listens to what the device sends back, and keeps account of both.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>

#include "formats/stream_reader.h"
#include "formats/video_tally.h"
#include "sim/aircraft/camera.h"
#include "sim/cable/cable.h"
#include "sim/remote/packet_log.h"
#include "sim/remote/source.h"

namespace sim {

// Time since the start of a run.
class Stopwatch {
  public:
    Time now() const { return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now() - start_); }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

struct PlayTally {
    std::uint64_t stream_bytes = 0;
    formats::VideoTally video;
    std::uint64_t packets = 0;  // pushes that went out unharmed
};

enum class PlayEnd {
    stopped,
    source_ended,
    device_gone,
};

class Player {
  public:
    // Called on the listening thread with the meaning of each packet that the device sent.
    using CommandHandler = std::function<void(const std::string& meaning)>;

    // All of them must outlive the player. From now on a read is always pending on the IN endpoint, since a
    // device that writes while the host does not read is blocked.
    Player(Cable& cable, Camera& camera, PacketLog& log, const Stopwatch& stopwatch,
           CommandHandler on_command);
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Plays until the source ends, the device is gone, `until` is reached or `stop` becomes true.
    PlayEnd play(Source& source, Time until, const std::atomic<bool>& stop);

    // An empty frame: the device takes a frame only once a byte behind its end has arrived, so this gets the
    // last one through. False when the device is gone.
    bool send_closing_frame();

    // Of everything sent so far. Of the playing thread.
    const PlayTally& tally() const { return tally_; }
    std::uint64_t transfers_received() const { return transfers_; }

  private:
    bool send(std::span<const std::uint8_t> piece);
    void count_packets(std::span<const std::uint8_t> payload);
    void listen();

    Cable& cable_;
    Camera& camera_;
    PacketLog& log_;
    const Stopwatch& stopwatch_;
    CommandHandler on_command_;
    PlayTally tally_;
    formats::StreamReader reader_;
    std::atomic<std::uint64_t> transfers_{0};
    std::atomic<bool> listening_{true};
    std::thread listener_;
};

}  // namespace sim
