// What arrives on the status port: the status line and the two records, taken apart. Any process can send to
// that port, so nothing in a datagram is trusted.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace ctl {

using Clock = std::chrono::steady_clock;

// The status line's pairs, in the order sent.
struct StatusLine {
    std::vector<std::pair<std::string, std::string>> pairs;

    // The text of a key; empty when the line has no such key.
    std::string_view value(std::string_view key) const;
};

// ardenvue::GimbalFocusRecord, decoded.
struct GimbalFocus {
    bool orientation_lock;
    std::array<std::int16_t, 3> attitude;
    bool recording;
    bool focus_valid;
    std::uint8_t focus_mode;
    std::uint16_t focus_max;
    std::uint16_t focus_position;
    double focus_point_x;
    double focus_point_y;

    // "MF", "AFS", "AFC", or empty for an unknown code.
    std::string_view focus_mode_text() const;
};

struct Histogram {
    std::array<std::uint8_t, 64> bins;
};

// std::monostate: none of ours, cut short, or with bytes that are no printable ASCII (a text that would be
// shown on a terminal must not steer it).
using Report = std::variant<std::monostate, StatusLine, GimbalFocus, Histogram>;
Report parse_report(std::span<const std::uint8_t> datagram);

// A key that every status line holds, and whether its text is always a number.
struct StatusKey {
    std::string_view name;
    bool is_number = false;
};
std::span<const StatusKey> status_keys();

// The newest of each, with the time of its arrival.
struct CameraView {
    std::optional<StatusLine> line;
    std::optional<GimbalFocus> gimbal_focus;
    std::optional<Histogram> histogram;
    Clock::time_point line_time{};
    Clock::time_point gimbal_focus_time{};
    Clock::time_point histogram_time{};

    void take(Report&& report, Clock::time_point time);

    // Only what arrived after the given time.
    CameraView since(Clock::time_point time) const;
};

}  // namespace ctl
