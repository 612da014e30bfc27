#pragma once

#include <pthread.h>

// Starts a thread with default attributes that runs body(nullptr). Returns 0 and the handle, or the error
// number of pthread_create.
inline int start_thread(void* (*body)(void*), pthread_t& handle) {
    return pthread_create(&handle, nullptr, body, nullptr);
}
