#include "platform/process_end.h"

#include <pthread.h>

#include <cstdlib>

#include "gtest/gtest.h"

namespace {
// Ends with 3, unless a later caller's code wins or that caller can't be cancelled.
[[noreturn]] void end_twice() {
    claim_process_end();
    pthread_t late{};
    const auto end_later = [](void*) -> void* {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);  // as the USB reader has it
        end_process(7);
    };
    if (pthread_create(&late, nullptr, end_later, nullptr) != 0 || pthread_cancel(late) != 0 ||
        pthread_join(late, nullptr) != 0) {
        std::exit(9);
    }
    std::exit(3);
}

TEST(ProcessEnd, FirstCallerDecidesAndLaterOnesCanBeJoined) {
    EXPECT_EXIT(end_twice(), testing::ExitedWithCode(3), "");
    EXPECT_EXIT(end_process(2), testing::ExitedWithCode(2), "");
}
}  // namespace
