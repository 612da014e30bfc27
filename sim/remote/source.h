// Where the stream that goes to the device comes from: a camera at work, or a recording.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "formats/capture_file.h"
#include "sim/aircraft/camera.h"
#include "sim/remote/clip.h"
#include "sim/remote/picture_times.h"

namespace sim {

class Source {
  public:
    virtual ~Source() = default;

    // When the next piece of the stream is due; none at its end.
    virtual std::optional<Time> due() = 0;

    // The next piece, at the time at which it goes out, which is when it is due or later. Valid until the
    // next call.
    virtual std::span<const std::uint8_t> take(Time now) = 0;
};

// A stream that had to wait for longer than this goes on from there, at its own pace; less is made up for.
constexpr Time longest_delay = std::chrono::milliseconds{500};

// Faults that the device has to bear without losing anything else.
struct StreamFaults {
    std::size_t garbage_bytes = 0;  // in front of every tenth frame; at most max_garbage
    bool corrupt_packets = false;   // of about every other push one bit is turned over
};
// Garbage and the next frame's header go out in one packet: more than that may take a frame with it.
constexpr std::size_t max_garbage = 480;

// A clip, over and over, with the pushes of a camera in between.
class LiveSource final : public Source {
  public:
    struct Options {
        double frames_per_second = 30;
        bool flat_out = false;  // video without pause; the pushes keep their rates
        StreamFaults faults;
        PictureTimes* times = nullptr;  // told of each picture that goes out; must outlive the source
    };

    // Begins at the given time. Without a clip, pushes alone. The camera must outlive the source.
    LiveSource(const std::vector<AccessUnit>& clip, Camera& camera, const Options& options, Time start);

    std::optional<Time> due() override;
    std::span<const std::uint8_t> take(Time now) override;

    std::uint64_t corrupted_packets() const { return corrupted_packets_; }

  private:
    struct Schedule {
        std::size_t push;  // row of the table of pushes
        Time due;
        std::uint32_t count;
    };

    Time video_due() const;
    Time pushes_due() const;
    void take_video(Time now);
    void take_pushes(Time now);
    void append_packet(Bytes& payload, Packet packet);

    std::vector<std::vector<Bytes>> pictures_;  // the stream frames of each access unit
    Camera& camera_;
    Options options_;
    std::vector<Schedule> schedule_;
    Time video_start_;
    std::uint64_t picture_ = 0;
    std::size_t part_ = 0;  // of the picture
    std::uint64_t frames_ = 0;
    std::uint16_t sequence_ = 0;  // of the pushes
    std::uint64_t corrupted_packets_ = 0;
    Bytes piece_;
    std::mt19937 random_;
};

// What a capture holds of the remote controller's stream, from its first frame on, as fast as it was recorded
// or without pause.
class ReplaySource final : public Source {
  public:
    // Begins at the given time. False when the file can't be read, or holds no frame.
    bool open(const std::string& path, bool flat_out, Time start);

    std::optional<Time> due() override;
    std::span<const std::uint8_t> take(Time now) override;

    // True once the recording turned out to be cut off or damaged; what came before it has been played.
    bool damaged() const { return reader_.damaged(); }

  private:
    void read_next();

    formats::CaptureReader reader_;
    bool flat_out_ = false;
    Time shift_{0};  // from the recording's time to ours
    std::optional<formats::CaptureRecord> next_;
    Bytes piece_;
};

}  // namespace sim
