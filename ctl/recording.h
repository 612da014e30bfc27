// A recording of the live video: fragmented MP4 with the times of arrival, and the state beside it as lines
// of JSON.
#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>

#include "ardenvue/json.h"
#include "ardenvue/video.h"
#include "ctl/seconds.h"
#include "formats/access_units.h"
#include "formats/fragmented_mp4.h"
#include "platform/file_descriptor.h"

namespace ctl {

// One file after the other: "flight.mp4", "flight-2.mp4", each playable up to the last picture written,
// whatever ends the process. A file that is there already is never written over. The state goes into
// "flight.jsonl", "flight-2.jsonl".
class Recording {
  public:
    // A new file begins at the first key picture behind this time, and where the parameter sets change.
    Recording(const std::string& path, std::optional<Clock::duration> split);

    void add(const ArdenvueFrame& frame);
    // Nothing has come for a while, or nothing more will.
    void flush() { pictures_.flush(); }
    // The state as it is now, on the clock of the pictures; only once there is a picture.
    void add_state(ArdenvueLink* link);

    // What went wrong, "" while nothing has. Then nothing more is written, and the files end with their last
    // whole picture.
    const std::string& problem() const { return problem_; }
    // The file that is written now; empty before the first picture.
    const std::string& file() const { return file_; }
    std::uint64_t pictures() const { return picture_count_; }
    std::uint64_t bytes() const { return bytes_; }

  private:
    void take(const formats::AccessUnit& unit);
    void begin_file(const formats::AccessUnit& unit);
    void write(std::span<const std::uint8_t> bytes);

    std::string stem_;
    std::string ending_;
    std::optional<Clock::duration> split_;
    formats::AccessUnits pictures_{[this](const formats::AccessUnit& unit) { take(unit); }};
    formats::FragmentedMp4 mp4_;
    FileDescriptor video_;
    std::ofstream state_;
    std::string file_;
    std::string problem_;
    int file_count_ = 0;
    Clock::time_point file_end_ = Clock::time_point::max();
    Clock::time_point next_writeback_{};
    std::int64_t length_ = 0;  // of the file, up to its last whole picture
    std::uint64_t picture_count_ = 0;
    std::uint64_t bytes_ = 0;
};

}  // namespace ctl
