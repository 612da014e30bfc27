// Ends another thread's poll(2).
#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "platform/file_descriptor.h"

namespace gateway {

class Waker {
  public:
    Waker() : event_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)} {}

    // Any thread; never waits.
    void wake() const {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(event_.get(), &one, sizeof one);
    }

    // The thread that is woken polls the descriptor for POLLIN, and clears it before it looks what is new.
    int descriptor() const { return event_.get(); }
    void clear() const {
        std::uint64_t wakes = 0;
        [[maybe_unused]] const ssize_t size = read(event_.get(), &wakes, sizeof wakes);
    }

  private:
    FileDescriptor event_;
};

}  // namespace gateway
