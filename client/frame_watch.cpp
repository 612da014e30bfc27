#include "client/frame_watch.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "ardenvue.h"

namespace client {
namespace {

constexpr Nanoseconds look_interval = 200'000'000;
constexpr Nanoseconds try_interval = 1'000'000'000;

}  // namespace

bool FrameWatch::watch(const char* ring_name) {
    const std::size_t size = std::strlen(ring_name);
    if (size == 0 || size >= name_.size()) {
        return false;
    }
    name_ = {};
    std::copy_n(ring_name, size, name_.begin());
    ring_ = FileDescriptor{};
    is_on_ = true;
    next_try_ = 0;
    return true;
}

void FrameWatch::saw(Nanoseconds time) {
    is_on_ = true;
    newest_ = time;
}

void FrameWatch::look(Nanoseconds now) {
    if (name_[0] == '\0' || now - looked_ < look_interval) {
        return;
    }
    const Nanoseconds looked_before = std::exchange(looked_, now);
    std::array<std::uint16_t, 2> read{};
    const bool is_read = open_ring(now) && pread(ring_.get(), read.data(), sizeof read,
                                                 offsetof(ardenvue::FrameRing, newest_frame_number)) ==
                                               static_cast<ssize_t>(sizeof read);
    // Another number than at the last look: a frame came since then.
    if (is_read && is_number_known_ && read != number_and_slot_) {
        newest_ = looked_before;
    }
    is_number_known_ = is_read;
    number_and_slot_ = read;
}

// The ring that the name leads to; one that was unlinked is given up.
bool FrameWatch::open_ring(Nanoseconds now) {
    struct stat status {};
    if (ring_ && fstat(ring_.get(), &status) == 0 && status.st_nlink == 0) {
        ring_ = FileDescriptor{};
    }
    if (!ring_ && now >= next_try_) {
        ring_ = FileDescriptor{shm_open(name_.data(), O_RDONLY | O_CLOEXEC, 0)};
        next_try_ = now + try_interval;
    }
    return static_cast<bool>(ring_);
}

}  // namespace client
