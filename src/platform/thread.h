#pragma once

#include <pthread.h>

// Starts a thread with default attributes that runs body(nullptr) under a name of at most 15 characters, by
// which top, a debugger and a core dump tell it. Returns 0 and the handle, or the error number of
// pthread_create.
inline int start_thread(void* (*body)(void*), pthread_t& handle, const char* name) {
    const int error = pthread_create(&handle, nullptr, body, nullptr);
    if (error == 0) {
        pthread_setname_np(handle, name);
    }
    return error;
}
