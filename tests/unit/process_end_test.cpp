#include "platform/process_end.h"

#include <pthread.h>

#include <cstdlib>

#include <gtest/gtest.h>

namespace {
// The last work of an ending with code 3: ends with 9 instead when a later caller can't be cancelled.
void meet_a_later_caller() {
    pthread_t late{};
    const auto end_later = [](void*) -> void* {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);  // as the USB reader has it
        end_process(7, "late\n");
    };
    if (pthread_create(&late, nullptr, end_later, nullptr) != 0 || pthread_cancel(late) != 0 ||
        pthread_join(late, nullptr) != 0) {
        std::_Exit(9);
    }
}

TEST(ProcessEnd, FirstCallerDecidesAndLaterOnesSayNothingAndCanBeJoined) {
    EXPECT_EXIT(end_process(3, "first\n", meet_a_later_caller), testing::ExitedWithCode(3), "^first\n$");
    EXPECT_EXIT(end_process(2), testing::ExitedWithCode(2), "");
}
}  // namespace
