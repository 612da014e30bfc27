#include "client/ring_reader.h"

#include <atomic>

namespace client {
namespace {

using ardenvue::frame_slot_count;
using ardenvue::FrameSlot;

// A reader this far behind jumps to the middle of the ring: the slots that the writer is about to overwrite
// are never touched, so a copy can't be torn unless it takes as long as ten frames.
constexpr std::uint16_t safe_lag = frame_slot_count - 10;
constexpr std::uint16_t lag_after_jump = frame_slot_count / 2;

std::uint16_t load_acquire(const std::uint16_t& field) {
    return std::atomic_ref<std::uint16_t>(const_cast<std::uint16_t&>(field)).load(std::memory_order_acquire);
}

std::uint8_t load_acquire(const std::uint8_t& field) {
    return std::atomic_ref<std::uint8_t>(const_cast<std::uint8_t&>(field)).load(std::memory_order_acquire);
}

std::uint16_t slot_after(std::uint16_t slot, std::uint32_t steps) {
    return static_cast<std::uint16_t>((slot + steps) % frame_slot_count);
}

std::uint16_t steps_between(std::uint16_t older, std::uint16_t newer) {
    return static_cast<std::uint16_t>(newer - older);
}

bool is_written(const FrameSlot& slot) {
    return load_acquire(slot.flags[0]) == 1;
}

}  // namespace

std::span<const std::uint8_t> from_parameter_set(std::span<const std::uint8_t> bytes) {
    for (std::size_t i = 0; i + 3 < bytes.size(); ++i) {
        if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1 && (bytes[i + 3] & 0x1F) == 7) {
            return bytes.subspan(i > 0 && bytes[i - 1] == 0 ? i - 1 : i);
        }
    }
    return {};
}

RingReader::RingReader(const ardenvue::FrameRing& ring, ArdenvueStart start) : ring_{ring} {
    payload_.reserve(65'536);
    const auto [state, newest] = find_newest();
    was_empty_ = state != State::holds_frames;
    numbers_known_ = !was_empty_;
    last_ = newest;
    if (state == State::holds_frames && start != ARDENVUE_START_NEXT) {
        const std::optional<Place> first = find_first(newest, start);
        last_ = first ? before(*first) : newest;
    }
}

RingReader::Place RingReader::before(const Place& place) {
    return {static_cast<std::uint16_t>(place.number - 1), slot_after(place.slot, frame_slot_count - 1)};
}

// From the newest frame back, as far as they are of one run and the writer stays away.
std::optional<RingReader::Place> RingReader::find_first(const Place& newest, ArdenvueStart start) {
    std::optional<Place> found;
    Place place = newest;
    for (int back = 0; back < safe_lag && holds(place); ++back, place = before(place)) {
        if (start != ARDENVUE_START_KEY) {
            found = place;
        } else if (copy(place) && !from_parameter_set(payload_).empty()) {
            return place;
        }
        if (start == ARDENVUE_START_NEWEST) {
            break;
        }
    }
    return found;
}

// The slot before the next-slot index is complete, because that index is stored after it. The newest number
// is stored last of all, so it names this frame or, for a moment, the one before. Tried again while the
// writer moves on in between.
RingReader::Newest RingReader::find_newest() const {
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::uint16_t next = load_acquire(ring_.next_slot);
        if (next >= frame_slot_count) {
            break;
        }
        const std::uint16_t slot = slot_after(next, frame_slot_count - 1);
        const bool written = is_written(ring_.slots[slot]);
        const std::uint16_t number = load_acquire(ring_.slots[slot].frame_number);
        const std::uint16_t published = load_acquire(ring_.newest_frame_number);
        if (load_acquire(ring_.next_slot) != next) {
            continue;
        }
        if (written && steps_between(published, number) <= 1) {
            return {State::holds_frames, {number, slot}};
        }
        if (next == 0 && published == 0) {
            return {State::empty, {}};
        }
    }
    return {State::unsettled, {}};
}

std::optional<RingFrame> RingReader::next() {
    for (;;) {
        const auto [state, newest] = find_newest();
        if (state != State::holds_frames) {
            was_empty_ = was_empty_ || state == State::empty;
            return std::nullopt;
        }
        const std::uint16_t behind = steps_between(last_.number, newest.number);
        const std::uint16_t slots = slot_after(newest.slot, frame_slot_count - last_.slot);
        // Without a clear in between, slots and numbers advance alike.
        if (was_empty_ || behind % frame_slot_count != slots) {
            resume_at_first_slot(newest);
            continue;
        }
        if (behind == 0) {
            return std::nullopt;
        }
        if (behind > safe_lag) {
            pass_over(static_cast<std::uint16_t>(behind - lag_after_jump));
            continue;
        }
        const Place wanted{static_cast<std::uint16_t>(last_.number + 1), slot_after(last_.slot, 1)};
        if (!copy(wanted)) {
            pass_over(1);
            continue;
        }
        last_ = wanted;
        totals_.frames += 1;
        totals_.bytes += payload_.size();
        const RingFrame frame{wanted.number, missed_before_, payload_};
        missed_before_ = 0;
        return frame;
    }
}

// After a clear, and after a restart of the service, the frames stand from slot 0 on.
void RingReader::resume_at_first_slot(const Place& newest) {
    const auto first = static_cast<std::uint16_t>(newest.number - newest.slot);
    const auto expected = static_cast<std::uint16_t>(last_.number + 1);
    const std::uint16_t gap = steps_between(expected, first);
    const bool counts_on = gap < 0x8000 && !(first == 0 && gap != 0);
    if (numbers_known_ && counts_on) {
        missed_before_ += gap;
        totals_.missed += gap;
    } else if (numbers_known_) {
        totals_.restarts += 1;
    }
    last_ = {static_cast<std::uint16_t>(first - 1), frame_slot_count - 1};
    numbers_known_ = true;
    was_empty_ = false;
}

void RingReader::pass_over(std::uint16_t frames) {
    last_ = {static_cast<std::uint16_t>(last_.number + frames), slot_after(last_.slot, frames)};
    missed_before_ += frames;
    totals_.missed += frames;
}

bool RingReader::holds(const Place& place) const {
    const FrameSlot& slot = ring_.slots[place.slot];
    return is_written(slot) && load_acquire(slot.frame_number) == place.number;
}

// True when the slot holds the frame, before and after the copy, and the writer was far from it all the time.
// Every load of the payload acquires, so that none is made later than the checks that follow.
bool RingReader::copy(const Place& place) {
    const FrameSlot& slot = ring_.slots[place.slot];
    const std::uint16_t size = load_acquire(slot.length_low);
    const auto holds_it = [&] {
        return holds(place) && load_acquire(slot.length_low) == size && load_acquire(slot.length_high) == 0;
    };
    if (size == 0 || !holds_it()) {
        return false;
    }
    payload_.resize(size);
    for (std::size_t i = 0; i < size; ++i) {
        payload_[i] = load_acquire(slot.payload[i]);
    }
    const auto [state, newest] = find_newest();
    return state == State::holds_frames && holds_it() &&
           steps_between(place.number, newest.number) < frame_slot_count - 1 &&
           slot_after(place.slot, steps_between(place.number, newest.number)) == newest.slot;
}

}  // namespace client
