#include "ctl/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ctl/exit_codes.h"
#include "ctl/stop_signal.h"

namespace ctl {
namespace {

int problem = 0;  // errno of the first write that failed

}  // namespace

FileDescriptor open_output(const std::string& path) {
    return FileDescriptor{path == "-" ? dup(STDOUT_FILENO)
                                      : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)};
}

bool write_all(int descriptor, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
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

bool hand_on_output() {
    errno = 0;
    if (problem == 0 && (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)) {
        problem = errno != 0 ? errno : EIO;
    }
    return problem == 0;
}

int finish_output() {
    if (hand_on_output()) {
        return done;
    }
    if (problem != EPIPE) {
        std::fprintf(stderr, "ardenvue-ctl: can't write the output: %s\n", std::strerror(problem));
    }
    return unusable;
}

}  // namespace ctl
