#include "platform/process_end.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "platform/diagnostics.h"

namespace {

std::atomic_flag claimed = ATOMIC_FLAG_INIT;

void claim() {
    if (claimed.test_and_set()) {
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        for (;;) {
            pause();
        }
    }
    // Who ends the process must not be cancelled in the middle of it.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

}  // namespace

void end_process(int code, const char* line, void (*last_work)()) {
    claim();
    if (line != nullptr) {
        std::fputs(line, stderr);
    }
    if (last_work != nullptr) {
        last_work();
    }
    drain_diagnostics();
    std::exit(code);
}
