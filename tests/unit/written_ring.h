// A frame ring that a test writes as the service does.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ardenvue.h"
#include "platform/file_descriptor.h"

class WrittenRing {
  public:
    WrittenRing() : fd_{shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600)} {
        EXPECT_EQ(ftruncate(fd_.get(), sizeof(ardenvue::FrameRing)), 0);
        ring_ = static_cast<ardenvue::FrameRing*>(
            mmap(nullptr, sizeof(ardenvue::FrameRing), PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), 0));
    }
    ~WrittenRing() {
        munmap(ring_, sizeof(ardenvue::FrameRing));
        shm_unlink(name.c_str());
    }
    WrittenRing(const WrittenRing&) = delete;
    WrittenRing& operator=(const WrittenRing&) = delete;

    void write(const std::vector<std::uint8_t>& payload) {
        ardenvue::FrameSlot& slot = ring_->slots[ring_->next_slot];
        std::copy(payload.begin(), payload.end(), slot.payload);
        store(slot.length_low, static_cast<std::uint16_t>(payload.size()));
        store(slot.frame_number, number_);
        std::fill_n(slot.flags, 10, std::uint8_t{1});
        store(ring_->next_slot, static_cast<std::uint16_t>((ring_->next_slot + 1) % 200));
        store(ring_->newest_frame_number, number_++);
    }
    void restart() {
        std::fill_n(reinterpret_cast<std::uint8_t*>(ring_), sizeof(ardenvue::FrameRing), std::uint8_t{0});
        number_ = 0;
    }
    void resize(off_t size) { EXPECT_EQ(ftruncate(fd_.get(), size), 0); }

    const std::string name = "/ardenvue-written-ring-" + std::to_string(getpid());

  private:
    static void store(std::uint16_t& field, std::uint16_t value) {
        __atomic_store_n(&field, value, __ATOMIC_RELEASE);
    }

    FileDescriptor fd_;
    ardenvue::FrameRing* ring_;
    std::uint16_t number_ = 0;
};
