#include <cstdio>
#include <string_view>
#include <vector>

#include "ctl/exit_codes.h"
#include "ctl/picture_decoder.h"
#include "ctl/seconds.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"
#include "ctl/video_watcher.h"
#include "formats/access_units.h"

namespace ctl {
namespace {

// The byte stream of the next picture that a decoder can begin with; empty when none has come by then.
std::vector<std::uint8_t> key_picture(VideoWatcher& watcher, Clock::time_point deadline) {
    std::vector<std::uint8_t> stream;
    formats::AccessUnits pictures{[&](const formats::AccessUnit& picture) {
        if (!picture.is_key || !stream.empty()) {
            return;
        }
        for (const formats::NalUnit unit : picture.units) {
            stream.insert(stream.end(), {0, 0, 0, 1});
            stream.insert(stream.end(), unit.begin(), unit.end());
        }
    }};
    while (stream.empty() && !stop_requested() && Clock::now() < deadline) {
        ArdenvueFrame frame{};
        if (!watcher.next(frame)) {
            if (watcher.is_silent()) {
                pictures.flush();
            }
            continue;
        }
        if (frame.missed_before > 0 || frame.follows_restart) {
            pictures.drop();
        }
        pictures.add({frame.data, frame.size}, frame.time_ns);
    }
    return stream;
}

}  // namespace

int run_snapshot(const BoardOptions& board, const SnapshotOptions& options) {
    const std::string_view file{options.file};
    const bool is_png = file.ends_with(".png");
    if (!is_png && !file.ends_with(".jpg") && !file.ends_with(".jpeg")) {
        std::fputs("ardenvue-ctl: a snapshot's file name ends in .jpg or .png\n", stderr);
        return bad_usage;
    }
    const VideoHandle video = open_video(board);
    if (!video) {
        return unusable;
    }
    VideoWatcher watcher{board, video.get()};
    const auto picture = key_picture(watcher, Clock::now() + seconds(options.timeout));
    if (picture.empty()) {
        watcher.say_why_silent();
        return silent;
    }
    return write_picture(picture, is_png ? PictureKind::png : PictureKind::jpeg, options.file);
}

}  // namespace ctl
