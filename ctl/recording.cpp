#include "ctl/recording.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "ctl/output.h"

namespace ctl {
namespace {

using namespace std::chrono_literals;

// Where a picture stands on both clocks: the video counts from its first one.
std::string first_line(std::int64_t time_ns) {
    char text[96];
    std::snprintf(text, sizeof text, "{\"format\":1,\"video_began\":{\"monotonic\":%lld.%09lld}}",
                  static_cast<long long>(time_ns / 1'000'000'000),
                  static_cast<long long>(time_ns % 1'000'000'000));
    return text;
}

}  // namespace

Recording::Recording(const std::string& path, std::optional<Clock::duration> split) : split_{split} {
    const std::filesystem::path name{path};
    ending_ = name.extension().string();
    stem_ = path.substr(0, path.size() - ending_.size());
}

void Recording::add(const ArdenvueFrame& frame) {
    if (frame.missed_before > 0 || frame.follows_restart) {
        pictures_.drop();
    }
    pictures_.add({frame.data, frame.size}, frame.time_ns);
}

void Recording::take(const formats::AccessUnit& unit) {
    if (!problem_.empty()) {
        return;
    }
    const bool is_due = file_.empty() || mp4_.has_changed(unit) || Clock::now() >= file_end_;
    if (unit.is_key && is_due) {
        begin_file(unit);
    }
    if (file_.empty() || !problem_.empty()) {
        return;
    }
    const std::span<const std::uint8_t> fragment = mp4_.fragment(unit);
    write(fragment);
    picture_count_ += problem_.empty() ? 1 : 0;
    // The kernel writes on at once, so that little is lost with the board's power.
    if (Clock::now() >= next_writeback_) {
        next_writeback_ = Clock::now() + 1s;
        sync_file_range(video_.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    }
}

void Recording::begin_file(const formats::AccessUnit& unit) {
    formats::FragmentedMp4 mp4;
    if (!mp4.start(unit)) {
        return;  // no parameter sets that a player could use: go on as before
    }
    mp4_ = std::move(mp4);
    file_count_ += 1;
    const std::string stem = stem_ + (file_count_ == 1 ? "" : "-" + std::to_string(file_count_));
    video_ = FileDescriptor{open((stem + ending_).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644)};
    if (!video_) {
        problem_ = "can't write " + stem + ending_ + ": " + std::strerror(errno);
        return;
    }
    file_ = stem + ending_;
    length_ = 0;
    file_end_ = split_ ? Clock::now() + *split_ : Clock::time_point::max();
    state_ = std::ofstream{stem + ".jsonl"};
    state_ << first_line(unit.time_ns) << std::endl;
    write(mp4_.header());
}

void Recording::write(std::span<const std::uint8_t> bytes) {
    if (!problem_.empty()) {
        return;
    }
    if (!write_all(video_.get(), bytes)) {
        problem_ = "can't write " + file_ + ": " + std::strerror(errno);
        // Some players stumble over half a picture at the end.
        [[maybe_unused]] const int cut = ftruncate(video_.get(), static_cast<off_t>(length_));
        return;
    }
    length_ += static_cast<std::int64_t>(bytes.size());
    bytes_ += bytes.size();
}

void Recording::add_state(ArdenvueLink* link) {
    if (file_.empty() || !problem_.empty()) {
        return;
    }
    char text[ARDENVUE_STATE_JSON_SIZE];
    ardenvue_state_json(link, text, sizeof text);
    state_ << text << std::endl;
    if (!state_) {
        problem_ = "can't write the state beside " + file_;
    }
}

}  // namespace ctl
