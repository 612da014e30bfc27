// Access to plain records that one thread writes while others read: every shared field goes through these, so
// that a reader gets either the old or the new value of a field, never an undefined one, and no lock is
// needed.
#pragma once

#include <atomic>
#include <cstddef>
#include <type_traits>

// A template parameter deduced from the field alone: a value of another type converts to the field's.
template <typename Field>
Field load_relaxed(const Field& field) {
    static_assert(std::is_trivially_copyable_v<Field>);
    return std::atomic_ref<Field>(const_cast<Field&>(field)).load(std::memory_order_relaxed);
}

template <typename Field>
void store_relaxed(Field& field, std::type_identity_t<Field> value) {
    static_assert(std::is_trivially_copyable_v<Field>);
    std::atomic_ref<Field>(field).store(value, std::memory_order_relaxed);
}

// For fields that another process reads in the order in which they are written: what was written before is
// seen once this value is.
template <typename Field>
void store_release(Field& field, std::type_identity_t<Field> value) {
    static_assert(std::is_trivially_copyable_v<Field>);
    std::atomic_ref<Field>(field).store(value, std::memory_order_release);
}

// What is written after this is not seen before what was written until now. ThreadSanitizer knows no fences,
// and the compiler refuses them beside it.
inline void fence_release() {
#ifndef __SANITIZE_THREAD__
    std::atomic_thread_fence(std::memory_order_release);
#endif
}

// Stores a text into a fixed-size text field, cut to its capacity and always terminated.
template <std::size_t capacity>
void store_text(char (&field)[capacity], const char* text) {
    std::size_t i = 0;
    for (; i + 1 < capacity && text[i] != '\0'; ++i) {
        store_relaxed(field[i], text[i]);
    }
    store_relaxed(field[i], '\0');
}

// A copy of a text field, terminated even when the writer is in the middle of rewriting it.
template <std::size_t capacity>
struct TextCopy {
    char text[capacity];
};

template <std::size_t capacity>
TextCopy<capacity> load_text(const char (&field)[capacity]) {
    TextCopy<capacity> copy{};
    for (std::size_t i = 0; i + 1 < capacity; ++i) {
        copy.text[i] = load_relaxed(field[i]);
        if (copy.text[i] == '\0') {
            break;
        }
    }
    return copy;
}
