// One run of the remote controller over a cable: enumeration, stream, faults, and the account of it all.
// Knows nothing of what is behind the cable but how to start it and how it ended.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/fault_plan.h"
#include "sim/remote/host.h"
#include "sim/remote/picture_times.h"
#include "sim/remote/player.h"

namespace sim {

struct SessionOptions {
    std::string clip;    // path; empty for pushes without video
    std::string replay;  // path of a recording, played instead
    double frames_per_second = 30;
    bool flat_out = false;
    std::optional<Time> length;  // of the stream; none: until told to stop
    FaultPlan faults;
    std::string log;     // path of the packet log, or empty
    std::string times;   // path of the log of pictures, or empty
    std::string report;  // path of the report, or empty
};

// The service behind the cable.
struct Service {
    std::function<void()> start;
    // Its exit code when it has ended, or 128 and the signal that ended it; none when it still runs after the
    // time.
    std::function<std::optional<int>(Milliseconds)> wait_for_end;
    // Processor time that it has used since its last start.
    std::function<double()> cpu_seconds;
};

class Session {
  public:
    Session(Cable& cable, Service service, SessionOptions options);

    // Loads clip or recording and opens the log. What is wrong, nothing when all is well.
    std::string prepare();

    // Starts the service and plays until the end of the source, the length or `stop`. Afterwards the service
    // still runs, unless a fault ended it. True when there was nothing to complain of.
    bool run(const std::atomic<bool>& stop);

    std::vector<std::string> problems() const;

    // What happened, for people.
    void print_summary() const;
    // The same as NAME=VALUE lines, in the report. False with errno set when it can't be written.
    bool write_report() const;

  private:
    bool start_and_enumerate();
    void make_source();
    void play(Player& player, const std::atomic<bool>& stop);
    // Whether there is a device to go on with.
    bool interrupt(const Interruption& interruption, const std::atomic<bool>& stop);
    // Whether the service ended, and as it must.
    bool end_as_expected(int expected_code, const std::atomic<bool>& stop);
    void wait(Time length, const std::atomic<bool>& stop) const;
    void say(const std::string& text) const;
    void problem(const std::string& text);

    Cable& cable_;
    Service service_;
    SessionOptions options_;
    Camera camera_;
    PacketLog log_;
    PictureTimes times_;
    std::vector<AccessUnit> clip_;
    std::unique_ptr<LiveSource> live_;
    std::unique_ptr<ReplaySource> replay_;
    std::optional<Stopwatch> stopwatch_;  // runs from the start of the stream
    std::vector<std::string> problems_;   // but for the camera's complaints
    PlayTally tally_;
    std::uint64_t transfers_ = 0;
    std::uint64_t corrupted_packets_ = 0;
    unsigned starts_ = 0;
    Time played_{0};
    double cpu_seconds_ = 0;
};

}  // namespace sim
