// The capture file: a stream recorded with its times, so that a flight's trouble can be brought home,
// replayed at the desk and kept as a test. The client's `capture` writes it, its `inject` and the simulator's
// replay read it.
//
// Layout, all fields little-endian:
//
//   header, 16 bytes      0  8  the characters "ARDVCAP1"
//                         8  8  wall clock at the start, microseconds since 1970-01-01 00:00 UTC
//   record, repeated      0  8  time since the start, microseconds, at most a year
//                         8  4  number of bytes, 1 to 16,777,216
//                        12  1  direction: 0 from the remote controller, 1 towards it
//                        13  3  0
//                        16  …  the bytes
//
// Where the stream is cut into records means nothing: the bytes of one direction, joined, are the stream.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace formats {

enum class Direction : std::uint8_t {
    from_remote = 0,  // the remote controller's stream: video and pushes
    to_remote = 1,    // command packets
};

struct CaptureRecord {
    std::chrono::microseconds time;  // since the start of the capture
    Direction direction;
    std::vector<std::uint8_t> bytes;
};

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

class CaptureWriter {
  public:
    // Creates the file, or truncates it, and writes its header; the clock of write() starts. False with errno
    // set when that failed.
    bool open(const std::string& path);

    // Appends the bytes as one record at the given time, or at the present one; nothing when there are none.
    // Records are written in the order of their times. False when the disk took less than all of it.
    bool write(Direction direction, std::span<const std::uint8_t> bytes);
    bool write(std::chrono::microseconds time, Direction direction, std::span<const std::uint8_t> bytes);

    // Writes out what is buffered, so that what was recorded survives a crash of the caller.
    bool flush();

  private:
    File file_;
    std::chrono::steady_clock::time_point start_;
};

class CaptureReader {
  public:
    // Opens a capture. A file that does not begin with the header's characters is taken as a plain stream
    // from the remote controller without times: its records are 16,384 bytes each (the last one less), all at
    // time 0. False with errno set when the file can't be read.
    bool open(const std::string& path);

    // The next record; none at the end of the file, and none at a damaged or incomplete record.
    std::optional<CaptureRecord> next();

    // Back to the first record.
    void rewind();

    bool has_times() const { return has_times_; }
    // True once next() met a damaged or incomplete record: the recorder was cut off, or this is no capture.
    bool damaged() const { return damaged_; }

  private:
    File file_;
    bool has_times_ = false;
    bool damaged_ = false;
};

}  // namespace formats
