#include "platform/process_end.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace {
std::atomic_flag claimed = ATOMIC_FLAG_INIT;
}

void claim_process_end() {
    if (claimed.test_and_set()) {
        // The thread that is ending the process may wait for this one to be gone.
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        for (;;) {
            pause();
        }
    }
    // A reader that is ending the process must not be cancelled in the middle of exit().
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

void end_process(int code) {
    claim_process_end();
    std::exit(code);
}
