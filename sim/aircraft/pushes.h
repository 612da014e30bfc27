// The state that camera, gimbal and batteries push without being asked: a plain record of it, and the packets
// that carry it.
#pragma once

#include <array>
#include <cstdint>

#include "sim/aircraft/packet.h"

namespace sim {

// Codes and units as the pushes carry them; the first values are those of a camera just switched on.
struct AircraftState {
    // Camera status push.
    std::uint8_t device_id = 14;
    bool recording = false;
    std::uint8_t camera_mode = 0;  // 0 photo, 1 video, 2 playback
    std::uint32_t sd_capacity_mb = 30'448;
    std::uint32_t shots_left = 3'412;
    std::uint32_t record_left_seconds = 4'020;
    std::uint16_t record_seconds = 0;

    // Focus push.
    std::uint8_t focus_mode = 0x86;
    std::uint16_t focus_max = 1000;
    std::uint16_t focus_position = 430;
    float focus_x = 0.5F;
    float focus_y = 0.5F;

    // Camera parameter push.
    std::uint32_t shutter_set = 0x0080C8;  // low byte, middle byte with bit 7 for a fraction, digit: 1/200
    std::uint32_t shutter = 0x0080C8;
    std::uint8_t iso_code = 0;  // 0 auto, 3 to 9 for 100 to 6400
    std::uint16_t iso = 100;
    std::uint8_t ev_code = 16;  // 16 is 0 EV, a third of a stop each
    std::uint8_t aspect = 1;    // 0 4:3, 1 16:9
    std::uint8_t photo_format = 1;
    std::uint8_t resolution = 16;
    std::uint8_t frame_rate = 3;
    std::uint8_t exposure_program = 1;
    std::uint8_t white_balance = 0;
    std::uint8_t wb_temperature = 68;  // kelvin / 100
    std::uint8_t colour = 43;
    std::uint8_t antiflicker = 0;
    std::uint16_t aperture = 560;  // f-number x 100
    std::uint8_t standard = 1;     // 0 PAL, 1 NTSC

    // Gimbal attitude push.
    std::array<std::int16_t, 3> gimbal{};  // in the order in which the push carries them

    // Battery and power pushes.
    std::uint8_t battery_percent = 87;
    std::uint16_t battery_temperature = 312;  // tenths
    std::uint16_t voltage = 15'240;

    // Histogram push.
    bool histogram_on = false;
    std::array<std::uint8_t, 64> histogram{};
};

// Cameras of this family push focus and parameters in two lengths each; both are understood everywhere.
enum class PushForm {
    shorter,
    longer,
};

// One packet each, payload bytes that mean nothing here are 0.
Packet attitude_push(const AircraftState& state);
Packet battery_push(const AircraftState& state);
Packet power_push(const AircraftState& state);
Packet camera_status_push(const AircraftState& state);
Packet focus_push(const AircraftState& state, PushForm form);
Packet parameter_push(const AircraftState& state, PushForm form);
Packet histogram_push(const AircraftState& state);

// "camera status", for logs; "packet" when it is none of them.
const char* push_name(const Packet& packet);

}  // namespace sim
