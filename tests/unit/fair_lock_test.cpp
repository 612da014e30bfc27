#include "platform/fair_lock.h"

#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

namespace {
// Waits until that many threads have asked for the lock since it was made.
void wait_for_requests(FairLock& lock, std::uint32_t count) {
    for (bool reached = false; !reached; sched_yield()) {
        pthread_mutex_lock(&lock.mutex);
        reached = lock.next_ticket >= count;
        pthread_mutex_unlock(&lock.mutex);
    }
}

TEST(FairLock, IsGivenInTheOrderOfAsking) {
    FairLock lock{};
    ASSERT_EQ(fair_lock_init(lock), 0);
    std::vector<int> order;
    std::vector<std::thread> threads;
    fair_lock_acquire(lock);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            const FairLockGuard guard{lock};
            order.push_back(i);
        });
        wait_for_requests(lock, static_cast<std::uint32_t>(i) + 2);
    }
    EXPECT_FALSE(fair_lock_try_acquire(lock));
    // What the USB reader does after each read: those who wait go first all the same.
    fair_lock_release(lock);
    fair_lock_acquire(lock);
    EXPECT_THAT(order, testing::ElementsAre(0, 1, 2, 3));
    fair_lock_release(lock);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(fair_lock_try_acquire(lock));
    fair_lock_release(lock);
    EXPECT_EQ(fair_lock_destroy(lock), 0);
}

struct Shared {
    FairLock lock{};
    int pipe_ends[2] = {};
};

TEST(FairLock, OutlivesTheCancellationOfItsHolderAndOfAWaitingThread) {
    Shared shared;
    ASSERT_EQ(fair_lock_init(shared.lock), 0);
    ASSERT_EQ(pipe(shared.pipe_ends), 0);
    const auto read_under_lock = [](void* argument) -> void* {
        auto& [lock, ends] = *static_cast<Shared*>(argument);
        const FairLockGuard guard{lock};
        char byte = 0;
        return read(ends[0], &byte, 1) == 1 ? argument : nullptr;
    };
    pthread_t holder{};
    pthread_t waiter{};
    ASSERT_EQ(pthread_create(&holder, nullptr, read_under_lock, &shared), 0);
    wait_for_requests(shared.lock, 1);
    ASSERT_EQ(pthread_create(&waiter, nullptr, read_under_lock, &shared), 0);
    wait_for_requests(shared.lock, 2);

    for (const pthread_t thread : {waiter, holder}) {
        ASSERT_EQ(pthread_cancel(thread), 0);
    }
    for (const pthread_t thread : {waiter, holder}) {
        void* result = nullptr;
        ASSERT_EQ(pthread_join(thread, &result), 0);
        EXPECT_EQ(result, PTHREAD_CANCELED);
    }
    EXPECT_TRUE(fair_lock_try_acquire(shared.lock));
    close(shared.pipe_ends[0]);
    close(shared.pipe_ends[1]);
}
}  // namespace
