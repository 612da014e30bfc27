#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "ardenvue/capture.h"
#include "ctl/exit_codes.h"
#include "ctl/output.h"
#include "ctl/packet_text.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"
#include "ctl/video_format.h"

namespace ctl {
namespace {

using Bytes = std::span<const std::uint8_t>;

struct CloseCapture {
    void operator()(ArdenvueCapture* capture) const { ardenvue_capture_close(capture); }
};
using Capture = std::unique_ptr<ArdenvueCapture, CloseCapture>;

// By the end of the file's name; empty for none that is known.
std::string format_of(std::string_view file) {
    for (const std::string_view format : {"h264", "mp4", "ts"}) {
        if (file.ends_with("." + std::string{format})) {
            return std::string{format};
        }
    }
    return file == "-" ? "h264" : "";
}

// One of the files that are written; nothing where none is wanted.
class Target {
  public:
    explicit Target(const std::string& path)
        : path_{path}, file_{path.empty() ? FileDescriptor{} : open_output(path)} {
        error_ = path.empty() || file_ ? 0 : errno;
    }

    void write(Bytes bytes) {
        if (error_ == 0 && !path_.empty() && !write_all(file_.get(), bytes)) {
            error_ = errno;
        }
    }
    bool is_wanted() const { return !path_.empty(); }
    bool is_fine() const { return error_ == 0; }

    // A reader that closed the pipe knows why.
    void say_problem() const {
        if (error_ != 0 && error_ != EPIPE) {
            std::fprintf(stderr, "ardenvue-ctl: can't write %s: %s\n", path_.c_str(), std::strerror(error_));
        }
    }

  private:
    std::string path_;
    FileDescriptor file_;
    int error_ = 0;
};

struct Tally {
    std::uint64_t video = 0;
    std::uint64_t received = 0;
    std::uint64_t sent = 0;
    std::uint64_t damaged_bytes = 0;
    std::int64_t end_ns = 0;

    void add(const ArdenvuePiece& piece) {
        video += piece.kind == ARDENVUE_PIECE_VIDEO ? 1U : 0U;
        received += piece.kind == ARDENVUE_PIECE_PACKET ? 1U : 0U;
        sent += piece.kind == ARDENVUE_PIECE_COMMAND ? 1U : 0U;
        damaged_bytes += piece.kind == ARDENVUE_PIECE_DAMAGED ? piece.size : 0U;
        end_ns = piece.time_ns;
    }
    void say() const {
        std::fprintf(stderr,
                     "ardenvue-ctl: %.1f s: %llu pieces of video, %llu packets received, %llu sent, %llu "
                     "damaged bytes between them\n",
                     static_cast<double>(end_ns) / 1e9, static_cast<unsigned long long>(video),
                     static_cast<unsigned long long>(received), static_cast<unsigned long long>(sent),
                     static_cast<unsigned long long>(damaged_bytes));
    }
};

// Why the options can't be; null when they can.
const char* problem_of(const DecodeOptions& options, const std::string& format, bool has_times) {
    if (!options.video.empty() && format.empty()) {
        return "a video's file name ends in .h264, .mp4 or .ts";
    }
    if (options.video == "-" && options.packets == "-") {
        return "video and packets can't both go to the standard output";
    }
    if (!options.video.empty() && format != "h264" && !has_times) {
        return "a recording without times can't become a video with times: write a .h264 file, to which a "
               "player or ffmpeg gives a rate";
    }
    return nullptr;
}

}  // namespace

int run_decode(const DecodeOptions& options) {
    ArdenvueCapture* opened = nullptr;
    if (ardenvue_capture_open(&opened, options.file.c_str()) != 0) {
        std::fprintf(stderr, "ardenvue-ctl: can't read %s: %s\n", options.file.c_str(), std::strerror(errno));
        return unusable;
    }
    const Capture capture{opened};
    const bool has_times = ardenvue_capture_has_times(opened);
    const std::string format = format_of(options.video);
    if (const char* const problem = problem_of(options, format, has_times)) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", problem);
        return bad_usage;
    }
    Target video{options.video};
    Target packets{options.packets};
    const auto pictures = make_video_format(format, [&](Bytes bytes) { video.write(bytes); });
    Tally tally;
    ArdenvuePiece piece{};
    int code = 0;
    while (video.is_fine() && packets.is_fine() && !stop_requested() &&
           (code = ardenvue_capture_next(opened, &piece)) == 0) {
        tally.add(piece);
        if (piece.kind != ARDENVUE_PIECE_VIDEO && packets.is_wanted()) {
            const std::string line = packet_line(piece, has_times) + "\n";
            packets.write({reinterpret_cast<const std::uint8_t*>(line.data()), line.size()});
        } else if (piece.kind == ARDENVUE_PIECE_VIDEO && video.is_wanted()) {
            ArdenvueFrame frame{};
            frame.data = piece.data;
            frame.size = piece.size;
            frame.time_ns = piece.time_ns;
            pictures->add(frame);
        }
    }
    pictures->flush();
    video.say_problem();
    packets.say_problem();
    tally.say();
    if (code == ARDENVUE_ERROR_DATA) {
        std::fprintf(stderr, "ardenvue-ctl: %s is damaged or cut off behind that\n", options.file.c_str());
    }
    return video.is_fine() && packets.is_fine() && code != ARDENVUE_ERROR_DATA ? done : unusable;
}

}  // namespace ctl
