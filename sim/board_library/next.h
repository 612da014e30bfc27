// How this library steps in front of libc. A definition made with BOARD_CALL is found before libc's function
// of the same name; NEXT is the function that the program would have called without this library. The C++
// names differ, so that libc's own declarations (and their noexcept) do not clash.
#pragma once

#include <dlfcn.h>

#include <atomic>

#define BOARD_CALL(result, name, parameters)                                                         \
    extern "C" __attribute__((visibility("default"))) result board_##name parameters __asm__(#name); \
    extern "C" result board_##name parameters

#define NEXT(name)                                          \
    (board_library::next_function<decltype(&board_##name)>( \
        []() -> std::atomic<void*>& {                       \
            static std::atomic<void*> found{nullptr};       \
            return found;                                   \
        }(),                                                \
        #name))

namespace board_library {

// Looked up on first use: a sanitizer's runtime calls before any constructor of ours has run.
template <class Function>
Function next_function(std::atomic<void*>& found, const char* name) {
    void* function = found.load(std::memory_order_relaxed);
    if (function == nullptr) {
        function = dlsym(RTLD_NEXT, name);
        found.store(function, std::memory_order_relaxed);
    }
    return reinterpret_cast<Function>(function);
}

}  // namespace board_library
