// The log of when each picture of a clip went onto the cable, a line each: its number in the clip, from 0,
// and the time of CLOCK_MONOTONIC in seconds, right before the first byte of it is handed to the cable.
#pragma once

#include <cstdint>
#include <string>

#include "formats/capture_file.h"

namespace sim {

class PictureTimes {
  public:
    // Without this, add() does nothing. False with errno set when the file can't be written.
    bool open(const std::string& path);

    // Of the playing thread.
    void add(std::uint64_t number);

  private:
    formats::File file_;
};

}  // namespace sim
