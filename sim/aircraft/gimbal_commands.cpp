#include <algorithm>
#include <array>

#include "platform/little_endian.h"
#include "sim/aircraft/aircraft.h"

namespace sim {
namespace {

using namespace std::string_view_literals;
using Payload = std::span<const std::uint8_t>;

Outcome not_understood() {
    return {Verdict::not_understood, {}};
}

// Motion packets carry the values of axis 0, axis 2 and axis 1, in this order.
GimbalValues motion_values(Payload payload) {
    const auto value = [payload](std::size_t at) {
        return static_cast<std::int16_t>(load_le16(&payload[at]));
    };
    return {value(0), value(4), value(2)};
}

std::string describe(const GimbalValues& values) {
    return std::to_string(values[0]) + " " + std::to_string(values[1]) + " " + std::to_string(values[2]);
}

// Three ones keep the gimbal where it is.
Outcome move_relative(Aircraft& aircraft, Payload payload, Time) {
    const GimbalValues values = motion_values(payload);
    if (payload[6] != 0x90) {
        return not_understood();
    }
    if (values == GimbalValues{1, 1, 1}) {
        return {Verdict::done, "hold"};
    }
    aircraft.gimbal.turn(values);
    return {Verdict::done, describe(values)};
}

Outcome move_absolute(Aircraft& aircraft, Payload payload, Time) {
    constexpr std::array<std::uint8_t, 4> tail{0x64, 0x00, 0xE0, 0x04};
    if (!std::equal(tail.begin(), tail.end(), payload.begin() + 6)) {
        return not_understood();
    }
    const GimbalValues values = motion_values(payload);
    aircraft.gimbal.point(values);
    return {Verdict::done, describe(values)};
}

Outcome centre_gimbal(Aircraft& aircraft, Payload, Time) {
    aircraft.gimbal.centre();
    return {Verdict::done, {}};
}

Outcome next_gimbal_position(Aircraft& aircraft, Payload, Time) {
    aircraft.gimbal.next_position();
    return {Verdict::done, {}};
}

template <Gimbal::Mode mode>
Outcome select_gimbal_mode(Aircraft& aircraft, Payload, Time) {
    aircraft.gimbal.set_mode(mode);
    return {Verdict::done, {}};
}

Outcome set_tilt_lock(Aircraft& aircraft, Payload payload, Time) {
    if (payload[3] > 1) {
        return not_understood();
    }
    aircraft.gimbal.set_tilt_locked(payload[3] == 1);
    return {Verdict::done, payload[3] == 1 ? "locked" : "free"};
}

Outcome set_follow_speed(Aircraft& aircraft, Payload payload, Time) {
    if (payload[3] != 0 && payload[3] != 2) {
        return not_understood();
    }
    aircraft.gimbal.set_slow(payload[3] == 2);
    return {Verdict::done, payload[3] == 2 ? "slow" : "fast"};
}

Outcome step_done(Aircraft&, Payload, Time) {
    return {Verdict::done, {}};
}

Outcome calibrate_gimbal(Aircraft& aircraft, Payload, Time) {
    aircraft.gimbal.calibrate();
    return {Verdict::done, {}};
}

constexpr std::uint8_t gimbal = 0x04;  // the command set

constexpr CommandRow commands[] = {
    // name, set, id, payload size, act, details
    {"gimbal calibration 1", gimbal, 0x07, 1, step_done, {.begins = "\0"sv, .then = "gimbal calibration 2"}},
    {"gimbal calibration 2",
     gimbal,
     0x01,
     8,
     step_done,
     {.begins = "\x00\x04\x00\x04\x00\x04\x80\x00"sv,
      .then = "gimbal calibration 3",
      .continues = true,
      .sender = 0x09,
      .type = 0x20}},
    {"gimbal calibration 3", gimbal, 0x08, 0, calibrate_gimbal, {.continues = true}},
    {"gimbal absolute", gimbal, 0x0A, 10, move_absolute},
    {"gimbal relative", gimbal, 0x0C, 7, move_relative},
    {"gimbal centre", gimbal, 0x4C, 2, centre_gimbal, {.begins = "\xFE\x08"sv}},
    {"gimbal next position", gimbal, 0x4C, 2, next_gimbal_position, {.begins = "\xFE\x09"sv}},
    {"gimbal first-person",
     gimbal,
     0x4C,
     2,
     select_gimbal_mode<Gimbal::Mode::first_person>,
     {.begins = "\x01\x00"sv, .then = "gimbal tilt"}},
    {"gimbal follow",
     gimbal,
     0x4C,
     2,
     select_gimbal_mode<Gimbal::Mode::follow>,
     {.begins = "\x02\x00"sv, .then = "gimbal tilt"}},
    {"gimbal tilt", gimbal, 0x50, 4, set_tilt_lock, {.begins = "\x00\x04\x01"sv, .continues = true}},
    {"gimbal follow speed", gimbal, 0x50, 4, set_follow_speed, {.begins = "\x00\x05\x01"sv}},

};

}  // namespace

std::span<const CommandRow> gimbal_commands() {
    return commands;
}

}  // namespace sim
