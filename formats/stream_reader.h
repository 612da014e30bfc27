// Reads back a stream of frames as it was sent.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include "formats/bytes.h"
#include "formats/stream_frame.h"

namespace formats {

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

}  // namespace formats
