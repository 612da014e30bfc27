// The lock of the USB link as an ordinary mutex, in place of platform/fair_lock, for comparison: linked into
// ardenvue-plain-mutex alone, ahead of the library, so that the library's own is not taken.
#include "platform/fair_lock.h"

int fair_lock_init(FairLock& lock) {
    return pthread_mutex_init(&lock.mutex, nullptr);
}

int fair_lock_destroy(FairLock& lock) {
    return pthread_mutex_destroy(&lock.mutex);
}

void fair_lock_acquire(FairLock& lock) {
    pthread_mutex_lock(&lock.mutex);
}

void fair_lock_release(FairLock& lock) {
    pthread_mutex_unlock(&lock.mutex);
}

bool fair_lock_try_acquire(FairLock& lock) {
    return pthread_mutex_trylock(&lock.mutex) == 0;
}
