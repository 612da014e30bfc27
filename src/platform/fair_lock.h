#pragma once

#include <pthread.h>

#include <cstdint>

// A lock that is given in the order in which it was asked for. With an ordinary mutex a thread that takes the
// lock again right after letting it go, as the USB reader does, keeps a waiting writer out for many reads;
// here the writer goes next. Taking it is not a cancellation point.
struct FairLock {
    pthread_mutex_t mutex;
    pthread_cond_t turn;
    std::uint32_t next_ticket;
    std::uint32_t now_serving;
};

// For a lock that lives as long as the process and needs no fair_lock_init.
constexpr FairLock fair_lock_initial = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0, 0};

// Both return 0, or the error number of the pthread call that failed.
int fair_lock_init(FairLock& lock);
int fair_lock_destroy(FairLock& lock);

void fair_lock_acquire(FairLock& lock);
void fair_lock_release(FairLock& lock);

// Takes the lock only if it is free now and nobody waits for it.
bool fair_lock_try_acquire(FairLock& lock);

// Holds the lock for the length of a scope; a cancelled thread lets it go as its stack is unwound.
class FairLockGuard {
  public:
    explicit FairLockGuard(FairLock& lock) : lock_{lock} { fair_lock_acquire(lock_); }
    ~FairLockGuard() { fair_lock_release(lock_); }
    FairLockGuard(const FairLockGuard&) = delete;
    FairLockGuard& operator=(const FairLockGuard&) = delete;

  private:
    FairLock& lock_;
};
