// Reads the ring of live video beside its writer, which never waits: a reader that falls behind loses frames,
// and learns from the frame numbers how many. How the writer publishes is told in include/ardenvue.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "ardenvue.h"
#include "ardenvue/video.h"

namespace client {

// The bytes from the first sequence parameter set on, its start code included (nal_unit_type 7, ITU-T H.264,
// 7.4.1); empty when they hold none. A decoder can make nothing of what stands before.
std::span<const std::uint8_t> from_parameter_set(std::span<const std::uint8_t> bytes);

struct RingFrame {
    std::uint16_t number;
    std::uint32_t missed_before;            // frames lost between the one returned before and this one
    std::span<const std::uint8_t> payload;  // until the next call
};

struct RingTotals {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::uint64_t missed = 0;    // written, but overwritten or cleared before they were read
    std::uint32_t restarts = 0;  // the numbers began at 0 again: the service was restarted
};

class RingReader {
  public:
    // Only loads from the ring, so that a read-only mapping will do; it must outlive the reader.
    explicit RingReader(const ardenvue::FrameRing& ring, ArdenvueStart start = ARDENVUE_START_NEXT);

    // The next frame in the order written, or none when there is no newer one. A frame is returned only when
    // it is certain that the writer left it alone while it was copied.
    std::optional<RingFrame> next();

    const RingTotals& totals() const { return totals_; }

  private:
    struct Place {
        std::uint16_t number;
        std::uint16_t slot;
    };
    enum class State { empty, holds_frames, unsettled };
    struct Newest {
        State state;
        Place place;
    };

    static Place before(const Place& place);
    Newest find_newest() const;
    std::optional<Place> find_first(const Place& newest, ArdenvueStart start);
    void resume_at_first_slot(const Place& newest);
    void pass_over(std::uint16_t frames);
    bool holds(const Place& place) const;
    bool copy(const Place& place);

    const ardenvue::FrameRing& ring_;
    Place last_{};                // taken or passed over last
    bool numbers_known_ = false;  // last_.number is one that was seen
    bool was_empty_ = false;      // the next frame goes to slot 0
    std::uint32_t missed_before_ = 0;
    std::vector<std::uint8_t> payload_;
    RingTotals totals_;
};

}  // namespace client
