#include <algorithm>
#include <array>

#include "sim/remote/source.h"

namespace sim {
namespace {

using std::chrono::milliseconds;

// What a camera of this family pushes, and how often; those due at one moment share a stream frame.
struct PushKind {
    Packet (*make)(const AircraftState& state, PushForm form);
    milliseconds period;
    bool only_with_histogram;
};

// Battery before power: each battery push makes the device forget the voltage that a power push tells it.
constexpr PushKind push_kinds[] = {
    {[](const AircraftState& state, PushForm) { return attitude_push(state); }, milliseconds{50}, false},
    {[](const AircraftState& state, PushForm) { return camera_status_push(state); }, milliseconds{200},
     false},
    {parameter_push, milliseconds{200}, false},
    {focus_push, milliseconds{200}, false},
    {[](const AircraftState& state, PushForm) { return histogram_push(state); }, milliseconds{200}, true},
    {[](const AircraftState& state, PushForm) { return battery_push(state); }, milliseconds{1000}, false},
    {[](const AircraftState& state, PushForm) { return power_push(state); }, milliseconds{1000}, false},
};

constexpr std::uint64_t frames_between_garbage = 10;

}  // namespace

LiveSource::LiveSource(const std::vector<AccessUnit>& clip, Camera& camera, const Options& options,
                       Time start)
    : camera_{camera}, options_{options}, video_start_{start} {
    for (const AccessUnit& unit : clip) {
        std::vector<Bytes>& frames = pictures_.emplace_back();
        for (const Bytes& payload : unit.payloads) {
            frames.push_back(encode_frame(formats::FrameType::video, payload));
        }
    }
    for (std::size_t push = 0; push < std::size(push_kinds); ++push) {
        schedule_.push_back({push, start, 0});
    }
}

Time LiveSource::video_due() const {
    if (pictures_.empty()) {
        return Time::max();
    }
    if (options_.flat_out) {
        return Time{0};
    }
    return video_start_ +
           Time{static_cast<Time::rep>(static_cast<double>(picture_) * 1e6 / options_.frames_per_second)};
}

Time LiveSource::pushes_due() const {
    return std::min_element(schedule_.begin(), schedule_.end(),
                            [](const Schedule& one, const Schedule& other) { return one.due < other.due; })
        ->due;
}

std::optional<Time> LiveSource::due() {
    return std::min(video_due(), pushes_due());
}

std::span<const std::uint8_t> LiveSource::take(Time now) {
    piece_.clear();
    if (options_.faults.garbage_bytes > 0 && frames_ % frames_between_garbage == 1) {
        // No byte of it begins a frame header.
        std::generate_n(std::back_inserter(piece_), options_.faults.garbage_bytes,
                        [this] { return static_cast<std::uint8_t>(0x80 | (random_() >> 8)); });
    }
    ++frames_;
    // Pushes first: flat out, video is always due.
    if (pushes_due() <= now) {
        take_pushes(now);
    } else {
        take_video(now);
    }
    return piece_;
}

void LiveSource::take_video(Time now) {
    const Time late = now - video_due();
    if (late > longest_delay) {
        video_start_ += late;
    }
    const std::uint64_t number = picture_ % pictures_.size();
    if (part_ == 0 && options_.times != nullptr) {
        options_.times->add(number);
    }
    const std::vector<Bytes>& frames = pictures_[static_cast<std::size_t>(number)];
    piece_.insert(piece_.end(), frames[part_].begin(), frames[part_].end());
    if (++part_ == frames.size()) {
        part_ = 0;
        ++picture_;
    }
}

void LiveSource::take_pushes(Time now) {
    const AircraftState state = camera_.state(now);
    Bytes payload;
    for (Schedule& schedule : schedule_) {
        const PushKind& kind = push_kinds[schedule.push];
        if (schedule.due > now) {
            continue;
        }
        // The phase stays; what was missed is not made up for.
        schedule.due += kind.period * (1 + (now - schedule.due) / kind.period);
        if (!kind.only_with_histogram || state.histogram_on) {
            const PushForm form = schedule.count++ % 2 == 0 ? PushForm::shorter : PushForm::longer;
            append_packet(payload, kind.make(state, form));
        }
    }
    const Bytes frame = encode_frame(formats::FrameType::packets, payload);
    piece_.insert(piece_.end(), frame.begin(), frame.end());
}

void LiveSource::append_packet(Bytes& payload, Packet packet) {
    packet.sequence = sequence_++;
    Bytes bytes = encode_packet(packet);
    if (options_.faults.corrupt_packets && random_() % 2 == 0) {
        bytes[random_() % bytes.size()] ^= static_cast<std::uint8_t>(1U << random_() % 8);
        ++corrupted_packets_;
    }
    payload.insert(payload.end(), bytes.begin(), bytes.end());
}

}  // namespace sim
