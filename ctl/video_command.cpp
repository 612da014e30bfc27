#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ctl/exit_codes.h"
#include "ctl/seconds.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"
#include "ctl/tcp_port.h"
#include "ctl/video_feed.h"
#include "ctl/video_format.h"
#include "platform/file_descriptor.h"

namespace ctl {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr int wait_ms = 100;  // between looks at what may end it

bool write_all(int fd, Bytes bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR && !stop_requested()) {
            continue;
        }
        if (written < 0) {
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

FileDescriptor open_output(const std::string& path) {
    return FileDescriptor{path == "-" ? dup(STDOUT_FILENO)
                                      : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)};
}

// What keeps frames away, as far as it can be told from here.
std::string why_silent(const BoardOptions& board, const ArdenvueVideoTotals& totals,
                       std::uint64_t skipped_before) {
    if (totals.skipped > skipped_before) {
        return "frames come, but no parameter set that a decoder could begin with";
    }
    return is_tcp_port_listening(board.relay_port)
               ? "the service runs, but the remote controller sends no video"
               : "no service is running that takes the video in (nothing listens on TCP port " +
                     std::to_string(board.relay_port) + ")";
}

// Reads frames and hands them on, as the options say, and says on the standard error stream what is missing.
class Watcher {
  public:
    Watcher(const BoardOptions& board, ArdenvueVideo* video) : board_{board}, video_{video} {}

    // The next frame; false when none has come for a moment.
    bool next(ArdenvueFrame& frame) {
        if (ardenvue_video_next(video_, &frame, wait_ms) != 0) {
            complain();
            return false;
        }
        if (frame.missed_before > 0) {
            std::fprintf(stderr, "ardenvue-ctl: missed %u frames before frame %u\n",
                         unsigned{frame.missed_before}, unsigned{frame.number});
            missed += frame.missed_before;
        }
        frames += 1;
        bytes += frame.size;
        silent_since_ = Clock::now();
        has_complained_ = false;
        return true;
    }

    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::uint64_t missed = 0;

  private:
    void complain() {
        if (has_complained_ || Clock::now() - silent_since_ < patience) {
            return;
        }
        has_complained_ = true;
        ArdenvueVideoTotals totals{};
        ardenvue_video_totals(video_, &totals);
        std::fprintf(stderr, "ardenvue-ctl: no frame for 2 s: %s\n",
                     why_silent(board_, totals, skipped_).c_str());
        skipped_ = totals.skipped;
    }

    static constexpr std::chrono::seconds patience{2};
    const BoardOptions& board_;
    ArdenvueVideo* video_;
    Clock::time_point silent_since_ = Clock::now();
    bool has_complained_ = false;
    std::uint64_t skipped_ = 0;
};

}  // namespace

int run_video(const BoardOptions& board, const VideoOptions& options) {
    if (options.output == "-" && isatty(STDOUT_FILENO) != 0) {
        std::fputs(
            "ardenvue-ctl: a terminal can't show video: pipe it to a player (| ffplay -), or name a file "
            "(-o)\n",
            stderr);
        return bad_usage;
    }
    ArdenvueVideo* opened = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    if (ardenvue_video_open(&opened, board.ring_name.c_str(), ARDENVUE_START_KEY, reason, sizeof reason) !=
        0) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", reason);
        return unusable;
    }
    const VideoHandle video{opened};
    const FileDescriptor output = open_output(options.output);
    bool can_write = static_cast<bool>(output);
    const std::unique_ptr<VideoFormat> format = make_video_format(
        options.format, [&](Bytes bytes) { can_write = can_write && write_all(output.get(), bytes); });
    const auto end = options.seconds > 0 ? Clock::now() + seconds(options.seconds) : Clock::time_point::max();
    Watcher watcher{board, video.get()};
    while (can_write && !stop_requested() && Clock::now() < end &&
           (options.frames == 0 || watcher.frames < options.frames)) {
        ArdenvueFrame frame{};
        if (watcher.next(frame)) {
            format->add(frame);
        } else {
            format->flush();
        }
    }
    int code = done;
    // A player that was closed is an ordinary end.
    if (!can_write && errno != EPIPE && !stop_requested()) {
        std::fprintf(stderr, "ardenvue-ctl: can't write %s: %s\n", options.output.c_str(),
                     std::strerror(errno));
        code = unusable;
    }
    format->flush();
    std::fprintf(stderr, "ardenvue-ctl: %llu frames, %llu bytes, %llu frames missed\n",
                 static_cast<unsigned long long>(watcher.frames),
                 static_cast<unsigned long long>(watcher.bytes),
                 static_cast<unsigned long long>(watcher.missed));
    return code == done && watcher.frames == 0 ? silent : code;
}

}  // namespace ctl
