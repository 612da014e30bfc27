// The gimbal: three axes that turn towards where they were told to look, within their range.
//
// What the packets leave open is chosen so that every command can be seen in the attitude push. Axis 0 is the
// heading (0 forwards, -180 towards the pilot), axis 1 the tilt, axis 2 the roll; all in degrees here and in
// the push.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>

namespace sim {

// Time since the simulator's start.
using Time = std::chrono::microseconds;

constexpr std::size_t gimbal_axes = 3;
using GimbalValues = std::array<std::int16_t, gimbal_axes>;
using Degrees = std::array<double, gimbal_axes>;

struct AxisRange {
    double lowest;
    double highest;
};
constexpr std::array<AxisRange, gimbal_axes> gimbal_range{{{-240, 60}, {-150, 90}, {-45, 45}}};

// The aircraft hovers with this roll, which the camera's picture shares in first-person mode only.
constexpr double aircraft_roll = 6;

class Gimbal {
  public:
    // One relative motion packet: a value of 500 turns its axis by one degree.
    void turn(const GimbalValues& values);
    // One absolute position packet, in tenths of a degree.
    void point(const GimbalValues& values);
    // Level, in the present one of the two headings; level, in the other one.
    void centre();
    void next_position();

    enum class Mode { follow, first_person };
    void set_mode(Mode mode);
    // A locked tilt stays level.
    void set_tilt_locked(bool locked);
    void set_slow(bool slow) { slow_ = slow; }
    // Runs tilt and roll from end to end, then goes level.
    void calibrate();

    // Turns towards the target for the time since the last call.
    void advance(Time now);

    // The three values as the attitude push carries them: tilt, roll negated, heading.
    GimbalValues pushed() const;

  private:
    void go_to(Degrees target);
    Degrees target() const { return way_.empty() ? attitude_ : way_.back(); }
    Degrees level() const;

    Degrees attitude_{};
    std::deque<Degrees> way_;  // passed one after the other
    double heading_ = 0;
    Mode mode_ = Mode::follow;
    bool tilt_locked_ = false;
    bool slow_ = false;
    Time last_{0};
};

}  // namespace sim
