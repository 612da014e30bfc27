// Writes H.264 video as an MPEG transport stream (ISO/IEC 13818-1), one picture at a time, with the times of
// arrival. No input or output of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "formats/access_units.h"
#include "formats/media_time.h"

namespace formats {

class TransportStream {
  public:
    // The packets of one access unit, 188 bytes each; before a key picture the two tables that a receiver
    // begins with. Its time counts from the first access unit's and is later than that of the one before.
    // Valid until the next call.
    std::span<const std::uint8_t> packets(const AccessUnit& unit);

  private:
    void put_table(std::uint16_t pid, std::span<const std::uint8_t> section);
    void put_picture(const AccessUnit& unit, std::uint64_t time);

    std::vector<std::uint8_t> bytes_;
    std::vector<std::uint8_t> picture_;  // one PES packet
    std::uint8_t counters_[3]{};         // of the tables' PIDs and the video's
    MediaTime time_;
};

}  // namespace formats
