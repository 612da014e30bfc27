#include "platform/fair_lock.h"

int fair_lock_init(FairLock& lock) {
    lock.next_ticket = 0;
    lock.now_serving = 0;
    if (const int error = pthread_mutex_init(&lock.mutex, nullptr); error != 0) {
        return error;
    }
    return pthread_cond_init(&lock.turn, nullptr);
}

int fair_lock_destroy(FairLock& lock) {
    const int error = pthread_cond_destroy(&lock.turn);
    return error != 0 ? error : pthread_mutex_destroy(&lock.mutex);
}

void fair_lock_acquire(FairLock& lock) {
    // A thread cancelled while it waits would leave its ticket unserved and everybody behind it waiting.
    int cancel_state = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
    pthread_mutex_lock(&lock.mutex);
    const std::uint32_t ticket = lock.next_ticket++;
    while (lock.now_serving != ticket) {
        pthread_cond_wait(&lock.turn, &lock.mutex);
    }
    pthread_mutex_unlock(&lock.mutex);
    pthread_setcancelstate(cancel_state, nullptr);
}

void fair_lock_release(FairLock& lock) {
    pthread_mutex_lock(&lock.mutex);
    ++lock.now_serving;
    const bool waited_for = lock.now_serving != lock.next_ticket;
    pthread_mutex_unlock(&lock.mutex);
    if (waited_for) {
        pthread_cond_broadcast(&lock.turn);
    }
}

bool fair_lock_try_acquire(FairLock& lock) {
    pthread_mutex_lock(&lock.mutex);
    const bool is_free = lock.now_serving == lock.next_ticket;
    if (is_free) {
        ++lock.next_ticket;
    }
    pthread_mutex_unlock(&lock.mutex);
    return is_free;
}
