#include "ardenvue/video.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <utility>

#include "client/guarded.h"
#include "client/monotonic.h"
#include "client/ring_mapping.h"
#include "client/ring_reader.h"

struct ArdenvueVideo {
    ArdenvueVideo(std::string name, client::RingMapping mapped, ArdenvueStart start)
        : ring_name{std::move(name)},
          mapping{std::move(mapped)},
          reader{std::in_place, *mapping.ring, start},
          waits_for_key{start == ARDENVUE_START_KEY} {}

    int next(ArdenvueFrame& frame, int timeout_ms);

    const std::string ring_name;
    client::RingMapping mapping;
    std::optional<client::RingReader> reader;  // none while the ring is not whole
    bool goes_on_at_once = false;
    bool waits_for_key;
    std::uint32_t unreturned = 0;  // since the newest frame that was returned
    bool has_restarted = false;    // since then
    client::Nanoseconds next_try = 0;
    std::int64_t time_ns = 0;
    std::int64_t wall_ns = 0;
    ArdenvueVideoTotals totals{};
    client::RingTotals earlier;  // of readers given up

  private:
    bool has_ring(client::Nanoseconds now);
    void give_up_ring();
    bool take(ArdenvueFrame& frame);
};

namespace {

using client::Nanoseconds;

constexpr Nanoseconds look_interval = 3'000'000;
constexpr Nanoseconds try_interval = 250'000'000;

Nanoseconds wall_now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<Nanoseconds>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

// False when a signal came.
bool sleep_for(Nanoseconds time) {
    const timespec length{time / 1'000'000'000, static_cast<long>(time % 1'000'000'000)};
    return nanosleep(&length, nullptr) == 0;
}

void tell(char* reason, std::size_t size, const std::string& text) {
    if (reason != nullptr && size > 0) {
        std::snprintf(reason, size, "%s", text.c_str());
    }
}

}  // namespace

void ArdenvueVideo::give_up_ring() {
    const client::RingTotals& of_this = reader->totals();
    earlier.missed += of_this.missed;
    earlier.restarts += of_this.restarts + 1;
    reader.reset();
    mapping = {};
    has_restarted = true;
    waits_for_key = !goes_on_at_once;
}

// Has the ring that its name leads to now.
bool ArdenvueVideo::has_ring(Nanoseconds now) {
    if (reader && !mapping.is_whole()) {
        give_up_ring();
    }
    if (!reader && now >= next_try) {
        next_try = now + try_interval;
        mapping = client::map_ring(ring_name);
        if (mapping.ring) {
            reader.emplace(*mapping.ring, ARDENVUE_START_OLDEST);
        }
    }
    return reader.has_value();
}

// Takes one frame off the ring; true when it is one for the caller.
bool ArdenvueVideo::take(ArdenvueFrame& frame) {
    const std::uint32_t restarts = reader->totals().restarts;
    const std::optional<client::RingFrame> next = reader->next();
    if (reader->totals().restarts != restarts) {
        has_restarted = true;
        waits_for_key = !goes_on_at_once;
    }
    if (!next) {
        return false;
    }
    unreturned += next->missed_before;
    waits_for_key = waits_for_key || (next->missed_before > 0 && !goes_on_at_once);
    const std::span<const std::uint8_t> key = client::from_parameter_set(next->payload);
    if (waits_for_key && key.empty()) {
        totals.skipped += 1;
        unreturned += 1;
        return false;
    }
    const std::span<const std::uint8_t> piece = waits_for_key ? key : next->payload;
    time_ns = std::max(time_ns + 1, client::monotonic_now());
    wall_ns = std::max(wall_ns + 1, wall_now());
    frame = {piece.data(),
             piece.size(),
             next->number,
             !key.empty(),
             std::exchange(has_restarted, false),
             totals.frames == 0 ? 0 : unreturned,
             time_ns,
             wall_ns};
    waits_for_key = false;
    unreturned = 0;
    totals.frames += 1;
    totals.bytes += piece.size();
    return true;
}

int ArdenvueVideo::next(ArdenvueFrame& frame, int timeout_ms) {
    const Nanoseconds begin = client::monotonic_now();
    for (Nanoseconds now = begin;; now = client::monotonic_now()) {
        if (has_ring(now)) {
            const std::uint64_t skipped = totals.skipped;
            if (take(frame)) {
                return 0;
            }
            if (totals.skipped != skipped) {
                continue;
            }
        }
        const Nanoseconds left =
            timeout_ms < 0 ? look_interval : begin + timeout_ms * Nanoseconds{1'000'000} - now;
        if (left <= 0) {
            return ARDENVUE_ERROR_TIMEOUT;
        }
        if (!sleep_for(std::min(left, look_interval))) {
            return ARDENVUE_ERROR_INTERRUPTED;
        }
    }
}

int ardenvue_video_open(ArdenvueVideo** video, const char* ring_name, enum ArdenvueStart start, char* reason,
                        std::size_t reason_size) {
    tell(reason, reason_size, "");
    if (video == nullptr || start < ARDENVUE_START_KEY || start > ARDENVUE_START_NEXT) {
        return ARDENVUE_ERROR_ARGUMENT;
    }
    *video = nullptr;
    return client::guarded([&] {
        std::string name = ring_name == nullptr ? ardenvue::frame_ring_name : ring_name;
        client::RingMapping mapping = client::map_ring(name);
        if (!mapping.ring) {
            tell(reason, reason_size, mapping.problem);
            return mapping.error;
        }
        *video = new ArdenvueVideo{std::move(name), std::move(mapping), start};
        return 0;
    });
}

void ardenvue_video_close(ArdenvueVideo* video) {
    delete video;
}

void ardenvue_video_go_on_at_once(ArdenvueVideo* video, bool at_once) {
    video->goes_on_at_once = at_once;
    video->waits_for_key = video->waits_for_key && !at_once;
}

int ardenvue_video_next(ArdenvueVideo* video, struct ArdenvueFrame* frame, int timeout_ms) {
    return client::guarded([&] { return video->next(*frame, timeout_ms); });
}

void ardenvue_video_totals(const ArdenvueVideo* video, struct ArdenvueVideoTotals* totals) {
    *totals = video->totals;
    totals->missed = video->earlier.missed;
    totals->restarts = video->earlier.restarts;
    if (video->reader) {
        totals->missed += video->reader->totals().missed;
        totals->restarts += video->reader->totals().restarts;
    }
}
