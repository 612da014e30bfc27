#pragma once

#include <pthread.h>

#include <csignal>

// Starts a thread with default attributes that runs body(nullptr) under a name of at most 15 characters, by
// which top, a debugger and a core dump tell it. Of the signals it takes only those that a fault of its own
// raises: all others are for the main thread. Returns 0 and the handle, or the error number of
// pthread_create.
inline int start_thread(void* (*body)(void*), pthread_t& handle, const char* name) {
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
        sigdelset(&blocked, own);
    }
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const int error = pthread_create(&handle, nullptr, body, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error == 0) {
        pthread_setname_np(handle, name);
    }
    return error;
}
