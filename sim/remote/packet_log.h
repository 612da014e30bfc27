// The log of every link packet on the cable, a line each: time in seconds, direction, bytes, meaning.
#pragma once

#include <mutex>
#include <span>
#include <string>

#include "formats/capture_file.h"
#include "sim/aircraft/gimbal.h"

namespace sim {

class PacketLog {
  public:
    // Without this, add() does nothing. False with errno set when the file can't be written.
    bool open(const std::string& path);
    bool is_open() const { return file_ != nullptr; }

    // Any thread.
    void add(Time time, formats::Direction direction, std::span<const std::uint8_t> packet,
             const std::string& meaning);

  private:
    std::mutex mutex_;
    formats::File file_;
};

}  // namespace sim
