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
#include "ctl/video_feed.h"
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

}  // namespace

int run_video(const BoardOptions& board, const VideoOptions& options) {
    ArdenvueVideo* opened = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    if (ardenvue_video_open(&opened, board.ring_name.c_str(), ARDENVUE_START_KEY, reason, sizeof reason) !=
        0) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", reason);
        return unusable;
    }
    const VideoHandle video{opened};
    const FileDescriptor output = open_output(options.output);
    if (!output) {
        std::fprintf(stderr, "ardenvue-ctl: can't write %s: %s\n", options.output.c_str(),
                     std::strerror(errno));
        return unusable;
    }
    const auto end = options.seconds > 0 ? Clock::now() + seconds(options.seconds) : Clock::time_point::max();
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::uint64_t missed = 0;
    int code = done;
    while (!stop_requested() && Clock::now() < end && (options.frames == 0 || frames < options.frames)) {
        ArdenvueFrame frame{};
        if (ardenvue_video_next(video.get(), &frame, wait_ms) != 0) {
            continue;
        }
        if (frame.missed_before > 0) {
            std::fprintf(stderr, "ardenvue-ctl: missed %u frames before frame %u\n",
                         unsigned{frame.missed_before}, unsigned{frame.number});
            missed += frame.missed_before;
        }
        if (!write_all(output.get(), {frame.data, frame.size})) {
            // A player that was closed is an ordinary end.
            if (errno != EPIPE && !stop_requested()) {
                std::fprintf(stderr, "ardenvue-ctl: can't write %s: %s\n", options.output.c_str(),
                             std::strerror(errno));
                code = unusable;
            }
            break;
        }
        frames += 1;
        bytes += frame.size;
    }
    std::fprintf(stderr, "ardenvue-ctl: %llu frames, %llu bytes, %llu frames missed\n",
                 static_cast<unsigned long long>(frames), static_cast<unsigned long long>(bytes),
                 static_cast<unsigned long long>(missed));
    return code == done && frames == 0 ? silent : code;
}

}  // namespace ctl
