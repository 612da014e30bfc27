// What arrives on the status port: the status line and the two records, taken apart. Any process can send to
// that port, so nothing in a datagram is trusted. Nothing here allocates.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "ardenvue/state.h"

namespace client {

using Nanoseconds = std::int64_t;  // CLOCK_MONOTONIC; 0: never

// The status line's pairs, in the order sent.
class StatusLine {
  public:
    // Takes the line of a datagram. False, and no pairs, for what the service never sends: cut short, or with
    // bytes that are no printable ASCII (a text that would be shown on a terminal must not steer it).
    bool parse(std::span<const std::uint8_t> datagram);

    std::size_t size() const { return count_; }
    const char* key(std::size_t index) const { return text_.data() + pairs_[index].key; }
    const char* value(std::size_t index) const { return text_.data() + pairs_[index].value; }
    // The text of a key; empty when the line has no such key.
    const char* value(std::string_view key) const;

  private:
    struct Pair {
        std::uint16_t key;
        std::uint16_t value;
    };
    bool split();

    std::array<char, 2048> text_{};  // keys and values, NUL-terminated
    std::array<Pair, 96> pairs_{};
    std::size_t length_ = 0;
    std::size_t count_ = 0;
};

// Whether every line has this key.
bool is_status_key(std::string_view key);

// One datagram, taken apart.
struct Report {
    ArdenvueReport kind =
        ARDENVUE_ANY_REPORT;  // says which of the three it is; this one: none of the service's
    StatusLine line;
    ArdenvueGimbalFocus gimbal_focus{};
    ArdenvueHistogram histogram{};

    void parse(std::span<const std::uint8_t> datagram);
};

// Reports that came after some moment; null: none did.
struct Seen {
    const StatusLine* line;
    const ArdenvueGimbalFocus* gimbal_focus;
};

// The newest of each report, with the time of its arrival.
struct CameraState {
    StatusLine line;
    Nanoseconds line_time = 0;
    ArdenvueGimbalFocus gimbal_focus{};
    ArdenvueHistogram histogram{};

    void take(const Report& report, Nanoseconds now);

    Nanoseconds newest(ArdenvueReport report) const;
    Seen since(Nanoseconds time) const;
    bool has_histogram(Nanoseconds now) const;
};

// The line's texts as values.
ArdenvueStatus status_values(const StatusLine& line, Nanoseconds time);

}  // namespace client
