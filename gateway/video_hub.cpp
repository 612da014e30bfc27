#include "gateway/video_hub.h"

namespace gateway {
namespace {

SharedBytes share(std::span<const std::uint8_t> bytes) {
    return std::make_shared<const std::vector<std::uint8_t>>(bytes.begin(), bytes.end());
}

}  // namespace

bool VideoHub::add(const formats::AccessUnit& unit) {
    const bool has_changed = unit.is_key && mp4_.has_changed(unit) && mp4_.start(unit);
    const SharedBytes header = has_changed ? share(mp4_.header()) : nullptr;
    const std::span<const std::uint8_t> fragment = mp4_.fragment(unit);
    if (fragment.empty()) {
        return false;
    }
    const SharedBytes bytes = share(fragment);
    const std::lock_guard guard{lock_};
    if (has_changed) {
        if (facts_.generation == 0) {
            facts_.origin_ns = unit.time_ns;
        }
        facts_.codec = mp4_.codec();
        facts_.size = mp4_.size();
        facts_.generation += 1;
        header_ = header;
    }
    fragments_.push_back({bytes, header_, TimePoint{std::chrono::nanoseconds{unit.time_ns}}, unit.is_key});
    bytes_ += bytes->size();
    if (unit.is_key) {
        newest_key_ = first_ + fragments_.size() - 1;
        snapshot_header_ = header_;
        snapshot_picture_ = bytes;
    }
    trim();
    return has_changed;
}

// Keeps what follows on the newest key picture, for newcomers, and what viewers may be behind.
void VideoHub::trim() {
    const TimePoint oldest = fragments_.back().time - most_behind;
    while (!fragments_.empty() &&
           (bytes_ > most_bytes || (first_ < newest_key_ && fragments_.front().time < oldest))) {
        bytes_ -= fragments_.front().bytes->size();
        fragments_.pop_front();
        newest_key_ = first_ == newest_key_ ? 0 : newest_key_;
        first_ += 1;
    }
}

bool VideoHub::is_held(std::uint64_t sequence) const {
    return sequence >= first_ && sequence < first_ + fragments_.size();
}

const VideoHub::Fragment& VideoHub::at(std::uint64_t sequence) const {
    return fragments_[static_cast<std::size_t>(sequence - first_)];
}

SharedBytes VideoHub::next(Viewer& viewer, TimePoint now) {
    const std::lock_guard guard{lock_};
    const std::uint64_t end = first_ + fragments_.size();
    if (viewer.next == 0) {
        viewer.patience = now + newcomers_time;
        viewer.next = newest_key_ != 0 ? newest_key_ : end;
    }
    const bool is_lost = viewer.next < first_;
    const bool is_late = is_held(viewer.next) && now > viewer.patience &&
                         fragments_.back().time - at(viewer.next).time > most_behind;
    if (is_lost || (is_late && newest_key_ != viewer.next)) {
        const std::uint64_t there = newest_key_ > viewer.next ? newest_key_ : end;
        viewer.skipped += there - viewer.next;
        viewer.next = there;
        viewer.waits_for_key = true;
    }
    while (viewer.waits_for_key && is_held(viewer.next) && !at(viewer.next).is_key) {
        viewer.next += 1;
    }
    if (!is_held(viewer.next)) {
        return nullptr;
    }
    const Fragment& fragment = at(viewer.next);
    viewer.waits_for_key = false;
    if (viewer.header != fragment.header) {
        viewer.header = fragment.header;
        return fragment.header;
    }
    viewer.next += 1;
    return fragment.bytes;
}

bool VideoHub::has_next(const Viewer& viewer) const {
    const std::lock_guard guard{lock_};
    return viewer.next == 0 ? newest_key_ != 0 : viewer.next < first_ + fragments_.size();
}

std::vector<std::uint8_t> VideoHub::snapshot() const {
    const std::lock_guard guard{lock_};
    std::vector<std::uint8_t> all;
    for (const SharedBytes& part : {snapshot_header_, snapshot_picture_}) {
        if (part) {
            all.insert(all.end(), part->begin(), part->end());
        }
    }
    return all;
}

StreamFacts VideoHub::facts() const {
    const std::lock_guard guard{lock_};
    return facts_;
}

}  // namespace gateway
