// Whether frames come: the newest frame number of the ring, looked at from time to time, or frames that the
// application saw itself. The ring is read, not mapped: another process may make the object shorter.
#pragma once

#include <array>
#include <cstdint>

#include "client/reports.h"
#include "platform/file_descriptor.h"

namespace client {

class FrameWatch {
  public:
    // False for a name that is none.
    bool watch(const char* ring_name);
    void saw(Nanoseconds time);

    // Every fifth of a second, at the caller's pace.
    void look(Nanoseconds now);

    bool is_on() const { return is_on_; }
    // When the newest frame came, or a little before; 0: none yet.
    Nanoseconds newest() const { return newest_; }

  private:
    bool open_ring(Nanoseconds now);

    std::array<char, 128> name_{};
    FileDescriptor ring_;
    bool is_on_ = false;
    bool is_number_known_ = false;
    std::array<std::uint16_t, 2> number_and_slot_{};
    Nanoseconds looked_ = 0;
    Nanoseconds next_try_ = 0;
    Nanoseconds newest_ = 0;
};

}  // namespace client
