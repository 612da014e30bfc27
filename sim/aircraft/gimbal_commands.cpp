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

constexpr CommandRow commands[] = {
    // name, set, id, sender, type, payload size, begins, then, continues, act
    {"gimbal calibration 1", 0x04, 0x07, 0x02, 0x40, 1, "\0"sv, "gimbal calibration 2", false, step_done},
    {"gimbal calibration 2", 0x04, 0x01, 0x09, 0x20, 8, "\x00\x04\x00\x04\x00\x04\x80\x00"sv,
     "gimbal calibration 3", true, step_done},
    {"gimbal calibration 3", 0x04, 0x08, 0x02, 0x40, 0, {}, {}, true, calibrate_gimbal},
    {"gimbal absolute", 0x04, 0x0A, 0x02, 0x40, 10, {}, {}, false, move_absolute},
    {"gimbal relative", 0x04, 0x0C, 0x02, 0x40, 7, {}, {}, false, move_relative},
    {"gimbal centre", 0x04, 0x4C, 0x02, 0x40, 2, "\xFE\x08"sv, {}, false, centre_gimbal},
    {"gimbal next position", 0x04, 0x4C, 0x02, 0x40, 2, "\xFE\x09"sv, {}, false, next_gimbal_position},
    {"gimbal first-person", 0x04, 0x4C, 0x02, 0x40, 2, "\x01\x00"sv, "gimbal tilt", false,
     select_gimbal_mode<Gimbal::Mode::first_person>},
    {"gimbal follow", 0x04, 0x4C, 0x02, 0x40, 2, "\x02\x00"sv, "gimbal tilt", false,
     select_gimbal_mode<Gimbal::Mode::follow>},
    {"gimbal tilt", 0x04, 0x50, 0x02, 0x40, 4, "\x00\x04\x01"sv, {}, true, set_tilt_lock},
    {"gimbal follow speed", 0x04, 0x50, 0x02, 0x40, 4, "\x00\x05\x01"sv, {}, false, set_follow_speed},
};

}  // namespace

std::span<const CommandRow> gimbal_commands() {
    return commands;
}

}  // namespace sim
