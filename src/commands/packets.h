// The packets of all commands: templates, copied and filled by the builders (see PacketRun).
#pragma once

#include "link/packet_template.h"

namespace packets {

constexpr LinkCommand to_camera(std::uint8_t id) {
    return {.sender = 0x02, .receiver = 0x01, .type = 0x40, .set = 0x02, .id = id};
}

constexpr LinkCommand to_gimbal(std::uint8_t id) {
    return {.sender = 0x02, .receiver = 0x04, .type = 0x40, .set = 0x04, .id = id};
}

// Capture and focus
inline constexpr auto record = make_link_packet<14>(to_camera(0x02));
inline constexpr auto shot = make_link_packet<14>(to_camera(0x01), {0x01});
inline constexpr auto camera_mode =
    make_link_packet<14>({.sender = 0x09, .receiver = 0x01, .type = 0x40, .set = 0x02, .id = 0x10});
inline constexpr auto focus_type = make_link_packet<14>(to_camera(0x24));
inline constexpr auto continuous_focus = make_link_packet<14>(to_camera(0x22), {0x03});
inline constexpr auto focus_point = make_link_packet<21>(to_camera(0x30));
inline constexpr auto manual_focus = make_link_packet<15>(to_camera(0x95));

// Exposure and image
inline constexpr auto exposure_program = make_link_packet<15>(to_camera(0x1E));
inline constexpr auto shutter = make_link_packet<17>(to_camera(0x28), {0x01});
inline constexpr auto aperture = make_link_packet<15>(to_camera(0x26));
inline constexpr auto iso = make_link_packet<14>(to_camera(0x2A));
inline constexpr auto exposure_compensation = make_link_packet<14>(to_camera(0x2E));
inline constexpr auto white_balance = make_link_packet<15>(to_camera(0x2C));
inline constexpr auto color = make_link_packet<14>(to_camera(0x42));

// Video and system
inline constexpr auto resolution_1 = make_link_packet<18>(to_camera(0x18));
inline constexpr auto resolution_2 = make_link_packet<15>(to_camera(0xAF));
inline constexpr auto transmission = make_link_packet<19>(to_camera(0x4C));
inline constexpr auto aspect_ratio = make_link_packet<15>(to_camera(0x12));
inline constexpr auto photo_format = make_link_packet<14>(to_camera(0x16));
inline constexpr auto antiflicker = make_link_packet<14>(to_camera(0x46));
inline constexpr auto video_standard = make_link_packet<14>(to_camera(0x66));
inline constexpr auto reset = make_link_packet<14>(to_camera(0x78));
inline constexpr auto format_card = make_link_packet<13>(to_camera(0x72));
inline constexpr auto histogram = make_link_packet<14>(to_camera(0x60));

// Gimbal
inline constexpr auto position_center = make_link_packet<15>(to_gimbal(0x4C), {0xFE, 0x08});
inline constexpr auto position_next = make_link_packet<15>(to_gimbal(0x4C), {0xFE, 0x09});
inline constexpr auto calibration_1 = make_link_packet<14>(to_gimbal(0x07));
inline constexpr auto calibration_2 =
    make_link_packet<21>({.sender = 0x09, .receiver = 0x04, .type = 0x20, .set = 0x04, .id = 0x01},
                         {0x00, 0x04, 0x00, 0x04, 0x00, 0x04, 0x80, 0x00});
inline constexpr auto calibration_3 = make_link_packet<13>(to_gimbal(0x08));
inline constexpr auto mode_select = make_link_packet<15>(to_gimbal(0x4C));
inline constexpr auto mode_option = make_link_packet<17>(to_gimbal(0x50));
inline constexpr auto follow_speed = make_link_packet<17>(to_gimbal(0x50));

// Header sums as seen on the wire, one of each length.
static_assert(format_card[3] == 0x33 && record[3] == 0x66 && aperture[3] == 0xA2 && shutter[3] == 0x92);
static_assert(resolution_1[3] == 0xC7 && transmission[3] == 0x03 && focus_point[3] == 0xA9);

}  // namespace packets
