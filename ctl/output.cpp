#include "ctl/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ctl/exit_codes.h"

namespace ctl {
namespace {

int problem = 0;  // errno of the first write that failed

}  // namespace

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
