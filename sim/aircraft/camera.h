// The far side of the link: takes every packet that the device sends, checks it, has camera and gimbal act on
// it and keeps account. What it can't accept becomes a complaint; a run with complaints has failed.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "sim/aircraft/aircraft.h"

namespace sim {

// A packet that was acted on, or refused as a real camera would; repetitions are counted.
struct CommandRecord {
    Time time;  // of the first one
    std::string meaning;
    std::uint32_t times;
};

struct ReceivedPacket {
    Bytes bytes;
    std::string meaning;  // "iso 400", "gimbal centre"; a complaint begins with "COMPLAINT"
};

// All members may be called on any thread.
class Camera {
  public:
    // The bytes of one transfer from the device: one packet, or several whole ones.
    std::vector<ReceivedPacket> receive(std::span<const std::uint8_t> transfer, Time now);

    // After this the next packet may carry any sequence number: the device has started anew.
    void expect_new_sequence();

    // The state to push at this time.
    AircraftState state(Time now);

    std::vector<CommandRecord> commands() const;
    std::vector<std::string> complaints() const;

  private:
    // Both return what is wrong with the packet beyond its sums, nothing when it is right. act() has then
    // acted on it and set the meaning.
    std::string act(const Packet& packet, Time now, std::string& meaning);
    std::string find_fault(const Packet& packet, const CommandRow* row);
    void remember(const std::string& meaning, Time now);

    mutable std::mutex mutex_;
    Aircraft aircraft_;
    std::optional<std::uint16_t> last_sequence_;
    const CommandRow* expects_continuation_of_ = nullptr;
    std::vector<CommandRecord> commands_;
    std::vector<std::string> complaints_;
};

// "12.345"
std::string seconds_text(Time time);

}  // namespace sim
