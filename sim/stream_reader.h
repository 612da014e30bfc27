// Reads back a stream of frames as it was sent, and keeps account of the video in it: what came out of the
// frame ring is compared with this.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include "sim/packet.h"

namespace sim {

// Position of the first frame header in the bytes; none when there is no whole one.
std::optional<std::size_t> find_frame(std::span<const std::uint8_t> bytes);

class StreamReader {
  public:
    using FrameHandler = std::function<void(FrameType, std::span<const std::uint8_t> payload)>;

    explicit StreamReader(FrameHandler handler) : handler_{std::move(handler)} {}

    // The next bytes of the stream, cut anywhere. Calls the handler for each frame that is complete; bytes
    // between frames are passed over.
    void add(std::span<const std::uint8_t> bytes);

  private:
    // Returns how many bytes are done with.
    std::size_t read_frames(std::span<const std::uint8_t> bytes);

    FrameHandler handler_;
    Bytes pending_;
};

// Account of video payloads. Payloads of zero bytes are none.
struct VideoTally {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    // Of all payloads, their bytes, order and bounds. Starting from 0xCBF29CE484222325 (FNV's), every 64-bit
    // word is mixed in by: digest = (digest ^ word) * 0x100000001B3. The words of a payload are its length,
    // then its bytes, eight a word, low byte first, the last word filled up with zeros.
    std::uint64_t digest = 0xCBF29CE484222325;

    void add(std::span<const std::uint8_t> payload);
};

}  // namespace sim
