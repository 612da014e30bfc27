#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ctl/exit_codes.h"
#include "ctl/ring_mapping.h"
#include "ctl/ring_reader.h"
#include "ctl/seconds.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"
#include "platform/file_descriptor.h"

namespace ctl {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr useconds_t poll_interval_us = 4'000;

// The payload from its first sequence parameter set on (nal_unit_type 7, ITU-T H.264, 7.4.1); empty when it
// has none. A decoder can make nothing of what stands before.
Bytes from_parameter_set(Bytes payload) {
    for (std::size_t i = 0; i + 3 < payload.size(); ++i) {
        if (payload[i] == 0 && payload[i + 1] == 0 && payload[i + 2] == 1 && (payload[i + 3] & 0x1F) == 7) {
            return payload.subspan(i > 0 && payload[i - 1] == 0 ? i - 1 : i);
        }
    }
    return {};
}

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
    const RingMapping mapping = map_ring(board.ring_name);
    if (!mapping.ring) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", mapping.problem.c_str());
        return unusable;
    }
    const FileDescriptor output = open_output(options.output);
    if (!output) {
        std::fprintf(stderr, "ardenvue-ctl: can't write %s: %s\n", options.output.c_str(),
                     std::strerror(errno));
        return unusable;
    }
    RingReader reader{*mapping.ring};
    const auto end = options.seconds > 0 ? Clock::now() + seconds(options.seconds) : Clock::time_point::max();
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::uint64_t missed = 0;
    int code = done;
    while (!stop_requested() && Clock::now() < end && (options.frames == 0 || frames < options.frames)) {
        const auto frame = reader.next();
        if (!frame) {
            usleep(poll_interval_us);
            continue;
        }
        const Bytes piece = frames == 0 ? from_parameter_set(frame->payload) : frame->payload;
        if (piece.empty()) {
            continue;
        }
        if (frames > 0 && frame->missed_before > 0) {
            std::fprintf(stderr, "ardenvue-ctl: missed %u frames before frame %u\n", frame->missed_before,
                         static_cast<unsigned>(frame->number));
            missed += frame->missed_before;
        }
        if (!write_all(output.get(), piece)) {
            // A player that was closed is an ordinary end.
            if (errno != EPIPE && !stop_requested()) {
                std::fprintf(stderr, "ardenvue-ctl: can't write %s: %s\n", options.output.c_str(),
                             std::strerror(errno));
                code = unusable;
            }
            break;
        }
        frames += 1;
        bytes += piece.size();
    }
    std::fprintf(stderr, "ardenvue-ctl: %llu frames, %llu bytes, %llu frames missed\n",
                 static_cast<unsigned long long>(frames), static_cast<unsigned long long>(bytes),
                 static_cast<unsigned long long>(missed));
    return code == done && frames == 0 ? silent : code;
}

}  // namespace ctl
