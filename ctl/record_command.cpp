#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "ctl/exit_codes.h"
#include "ctl/recording.h"
#include "ctl/service_link.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"
#include "ctl/video_watcher.h"

namespace ctl {
namespace {

using namespace std::chrono_literals;

constexpr double megabyte = 1e6;

// Of the file system that the file is to be on; below 0, with errno set, where it can't be told.
double free_megabytes(const std::string& file) {
    const std::string folder = std::filesystem::path{file}.parent_path().string();
    struct statvfs state {};
    if (statvfs(folder.empty() ? "." : folder.c_str(), &state) != 0) {
        return -1;
    }
    return static_cast<double>(state.f_bavail) * static_cast<double>(state.f_frsize) / megabyte;
}

// A line that is written over, on a terminal only.
class Progress {
  public:
    void show(const Recording& recording, const VideoWatcher& watcher, double free) {
        if (!is_terminal_) {
            return;
        }
        const int length =
            std::snprintf(line_, sizeof line_, "%02d:%02d  %llu pictures  %.1f MB  %.0f MB free  %llu missed",
                          static_cast<int>(in_seconds(Clock::now() - start_)) / 60,
                          static_cast<int>(in_seconds(Clock::now() - start_)) % 60,
                          static_cast<unsigned long long>(recording.pictures()),
                          static_cast<double>(recording.bytes()) / megabyte, free,
                          static_cast<unsigned long long>(watcher.missed));
        std::fprintf(stderr, "\r%s\x1b[K", line_);
        is_shown_ = length > 0;
    }
    ~Progress() {
        if (is_shown_) {
            std::fputs("\n", stderr);
        }
    }

  private:
    const bool is_terminal_ = isatty(STDERR_FILENO) != 0;
    const Clock::time_point start_ = Clock::now();
    bool is_shown_ = false;
    char line_[160]{};
};

// The state's link; none, with a word about it, when another process holds the status port.
Link open_state(const BoardOptions& board) {
    Link link;
    if (open_link(board, link) != done) {
        std::fputs("ardenvue-ctl: recording the video without the state\n", stderr);
        return nullptr;
    }
    return link;
}

// Takes in what has come, and writes the state down at each report.
void take_state(ArdenvueLink* link, Recording& recording) {
    while (link != nullptr && ardenvue_link_wait(link, ARDENVUE_ANY_REPORT, 0) > 0) {
        recording.add_state(link);
    }
}

void record(const RecordOptions& options, VideoWatcher& watcher, ArdenvueLink* link, Recording& recording) {
    Progress progress;
    const auto end = options.seconds > 0 ? Clock::now() + seconds(options.seconds) : Clock::time_point::max();
    Clock::time_point next_look{};
    while (!stop_requested() && Clock::now() < end && recording.problem().empty()) {
        ArdenvueFrame frame{};
        if (watcher.next(frame)) {
            recording.add(frame);
            if (link != nullptr) {
                ardenvue_link_saw_frame(link, frame.time_ns);
            }
        } else if (watcher.is_silent()) {
            recording.flush();
        }
        take_state(link, recording);
        if (Clock::now() >= next_look) {
            next_look = Clock::now() + 1s;
            const double free = free_megabytes(options.file);
            progress.show(recording, watcher, free);
            if (free < options.keep_free) {
                break;
            }
        }
    }
    recording.flush();
}

}  // namespace

int run_record(const BoardOptions& board, const RecordOptions& options) {
    if (std::filesystem::exists(options.file)) {
        std::fprintf(stderr, "ardenvue-ctl: %s is there already, and nothing is recorded over it\n",
                     options.file.c_str());
        return unusable;
    }
    const double free = free_megabytes(options.file);
    if (free < 0) {
        std::fprintf(stderr, "ardenvue-ctl: can't write %s: %s\n", options.file.c_str(),
                     std::strerror(errno));
        return unusable;
    }
    if (free < options.keep_free) {
        std::fprintf(stderr, "ardenvue-ctl: less than %g MB are free for %s (--keep-free)\n",
                     options.keep_free, options.file.c_str());
        return unusable;
    }
    const VideoHandle video = open_video(board);
    if (!video) {
        return unusable;
    }
    const Link link = options.with_state ? open_state(board) : nullptr;
    Recording recording{options.file,
                        options.split > 0 ? std::optional{seconds(60 * options.split)} : std::nullopt};
    VideoWatcher watcher{board, video.get()};
    record(options, watcher, link.get(), recording);

    int code = recording.file().empty() ? silent : done;
    if (!recording.problem().empty()) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", recording.problem().c_str());
        code = unusable;
    } else if (free_megabytes(options.file) < options.keep_free) {
        std::fprintf(stderr, "ardenvue-ctl: stopped with less than %g MB free (--keep-free)\n",
                     options.keep_free);
        code = unusable;
    }
    std::fprintf(stderr, "ardenvue-ctl: %llu pictures, %llu bytes, %llu frames missed\n",
                 static_cast<unsigned long long>(recording.pictures()),
                 static_cast<unsigned long long>(recording.bytes()),
                 static_cast<unsigned long long>(watcher.missed));
    return code;
}

}  // namespace ctl
