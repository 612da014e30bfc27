#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ctl/exit_codes.h"
#include "ctl/output.h"
#include "ctl/seconds.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"
#include "ctl/video_format.h"
#include "ctl/video_watcher.h"
#include "platform/file_descriptor.h"

namespace ctl {
namespace {

using Bytes = std::span<const std::uint8_t>;

}  // namespace

int run_video(const BoardOptions& board, const VideoOptions& options) {
    if (options.output == "-" && isatty(STDOUT_FILENO) != 0) {
        std::fputs(
            "ardenvue-ctl: a terminal can't show video: pipe it to a player (| ffplay -), or name a file "
            "(-o)\n",
            stderr);
        return bad_usage;
    }
    const VideoHandle video = open_video(board);
    if (!video) {
        return unusable;
    }
    const FileDescriptor output = open_output(options.output);
    bool can_write = static_cast<bool>(output);
    const std::unique_ptr<VideoFormat> format = make_video_format(
        options.format, [&](Bytes bytes) { can_write = can_write && write_all(output.get(), bytes); });
    const auto end = options.seconds > 0 ? Clock::now() + seconds(options.seconds) : Clock::time_point::max();
    VideoWatcher watcher{board, video.get()};
    while (can_write && !stop_requested() && Clock::now() < end &&
           (options.frames == 0 || watcher.frames < options.frames)) {
        ArdenvueFrame frame{};
        if (watcher.next(frame)) {
            format->add(frame);
        } else if (watcher.is_silent()) {
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
